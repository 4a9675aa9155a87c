/// The tree of subcommands. Each one has a file of its own, with one function that enters it here.

#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <functional>
#include <string>

namespace VeloCtl {

class Session;

/// What a subcommand does once the whole command line is known to be right.
using Action = std::function< void( Session & ) >;

/// Where subcommands are entered: the program itself, or a group of them ("show").
class Commands {
 public:
   /// Both outlive this. `chosen` becomes the action of the subcommand that was named.
   Commands( CLI::App & app, Action & chosen ) : app_( app ), chosen_( chosen ) {}

   enum Listed { listed, hidden };
   Commands group( const std::string & name, const std::string & help, Listed inHelp = listed );

   /// Arguments and options are added to what is returned.
   CLI::App & add( const std::string & name, const std::string & help, Action action );

 private:
   CLI::App & app_;
   Action & chosen_;
};

/// An option, or an argument if `name` has no dashes, that takes a number. `take( n )` is called
/// only with what is from `least` to `most`; anything else is refused by a WrongUse.
CLI::Option * addNumber( CLI::App & app, const std::string & name, const std::string & help,
                         std::uint64_t least, std::uint64_t most,
                         std::function< void( std::uint64_t ) > take );

/// `given` as a number. `name` is what people know it by.
std::uint64_t numberFrom( const std::string & name, const std::string & given, std::uint64_t least,
                          std::uint64_t most );

} // namespace VeloCtl
