#include "agent/veloctl/Completion.h"

#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Session.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <ostream>
#include <vector>

namespace VeloCtl {

namespace {

/// Stands for a value that has no choices: the shell's own completion then offers files.
constexpr const char * kAnyValue = "-";

/// Steps down the words of subcommands, over options and their values.
constexpr const char * kFunction = R"bash(
_veloctl() {
   local at=veloctl option= word words i
   for (( i = 1; i < COMP_CWORD; ++i )); do
      word="${COMP_WORDS[i]}"
      if [[ -n $option ]]; then option=
      elif [[ -n $( _veloctl_values "$word" ) ]]; then option="$word"
      elif [[ -n $( _veloctl_words "$at $word" ) ]]; then at="$at $word"
      fi
   done
   if [[ -n $option ]]; then words="$( _veloctl_values "$option" )"
   else words="$( _veloctl_words "$at" ) $( _veloctl_words everywhere )"
   fi
   COMPREPLY=()
   if [[ $words != - ]]; then
      mapfile -t COMPREPLY < <( compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}" )
   fi
}
complete -o default -F _veloctl veloctl
)bash";

std::string pathOf( const CLI::App & app ) {
   return app.get_parent() ? pathOf( *app.get_parent() ) + ' ' + app.get_name() : app.get_name();
}

/// The choices of an option.
std::string valuesOf( const CLI::Option & option ) {
   std::string type = option.get_type_name();
   if ( type.find( '|' ) == std::string::npos ) { return kAnyValue; }
   std::replace( type.begin(), type.end(), '|', ' ' );
   return type;
}

std::vector< std::string > longNamesOf( const CLI::App & app ) {
   std::vector< std::string > names;
   for ( const CLI::Option * const option : app.get_options() ) {
      for ( const std::string & name : option->get_lnames() ) { names.push_back( "--" + name ); }
   }
   return names;
}

/// By path, what may follow; by option, what its value may be.
struct Words {
   std::map< std::string, std::string > following;
   std::map< std::string, std::string > values;

   void add( const CLI::App & app ) {
      std::vector< std::string > words = longNamesOf( app );
      if ( !app.get_parent() ) {
         following["everywhere"] = fmt::format( "{}", fmt::join( words, " " ) );
         words.clear();
      }
      for ( const CLI::App * const command : app.get_subcommands( {} ) ) {
         if ( command->get_group().empty() ) { continue; }
         words.push_back( command->get_name() );
         add( *command );
      }
      following[pathOf( app )] = fmt::format( "{}", fmt::join( words, " " ) );
      for ( const CLI::Option * const option : app.get_options() ) {
         if ( option->get_type_size() == 0 ) { continue; }
         for ( const std::string & name : option->get_lnames() ) {
            values["--" + name] = valuesOf( *option );
         }
      }
   }
};

std::string functionOf( const std::string & name,
                        const std::map< std::string, std::string > & answers ) {
   std::string text = name + "() {\n   case \"$1\" in\n";
   for ( const auto & [question, answer] : answers ) {
      text += fmt::format( "   '{}') echo \"{}\" ;;\n", question, answer );
   }
   return text + "   esac\n}\n";
}

} // namespace

std::string bashCompletion( const CLI::App & veloctl ) {
   Words words;
   words.add( veloctl );
   return "# Completes the command lines of veloctl, in bash.\n\n" +
          functionOf( "_veloctl_words", words.following ) + '\n' +
          functionOf( "_veloctl_values", words.values ) + kFunction;
}

void addCompletion( Commands & commands, const CLI::App & veloctl ) {
   const auto print = [&veloctl]( Session & session ) {
      session.streams.out << bashCompletion( veloctl );
   };
   Commands shells = commands.group( "completion", "What the shell needs", Commands::hidden );
   shells.add( "bash", "For bash: eval \"$( veloctl completion bash )\"", print );
}

} // namespace VeloCtl
