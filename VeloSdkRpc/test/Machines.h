#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "VeloSdkRpc/PbrCountersBacklogSm.h"
#include "VeloSdkRpc/detail/CompressedKeyTableSm.h"
#include "VeloSdkRpc/test/CountersTree.h"
#include "VeloSdkRpc/test/Loop.h"

namespace VeloSdkRpc::test {

constexpr std::uint8_t kSynchronous = 1;
constexpr std::uint8_t kAsynchronous = 2;

/// What a state machine reads and writes.
struct World {
   CountersTree tree;
   const Lumo::Ptr< PbrCountersKeyCompressionTable > table = PbrCountersKeyCompressionTableIs();
   const Lumo::Ptr< PbrCountersBacklog > backlog = PbrCountersBacklogIs( table );

   /// The short keys that the table has, by policy map and class.
   std::map< CountersTree::Name, std::uint64_t > known() const {
      std::map< CountersTree::Name, std::uint64_t > all;
      for ( const auto & entry : table->shortKey() ) {
         all[{ std::string( entry.fwkKey().policyKey().name().view() ),
               std::string( entry.fwkKey().name().view() ) }] = entry.value();
      }
      return all;
   }
   /// 0 if there is none.
   std::uint64_t shortKey( const std::string & policy, const std::string & name ) const {
      const auto * entry = table->shortKey()[longKey( policy, name )];
      return entry ? entry->value() : 0;
   }
   static PbrCountersKey longKey( const std::string & policy, const std::string & name ) {
      return PbrCountersKey( PolicyMapKey( policy ), name, {} );
   }

   /// In the order in which they are scanned.
   std::vector< std::string > policies() const {
      std::vector< std::string > all;
      for ( const auto & map : tree.root->policyMapCounters() ) {
         all.emplace_back( map.fwkKey().name().view() );
      }
      return all;
   }
   std::vector< std::string > classes( const std::string & policy ) const {
      std::vector< std::string > all;
      for ( const auto & entry : tree.policyMap( policy )->classCounters() ) {
         all.emplace_back( entry.fwkKey().view() );
      }
      return all;
   }
};

/// One of the twin machines, as the suites that both share see it.
struct KeyTableMachine {
   using Sm = CompressedKeyTableSm;
   using Root = IlexCode::CompressedKeyTableSm::RootSm3;
   using Child = IlexCode::CompressedKeyTableSm::PolicyMapCountersSm4;
   using ScanState = IlexCode::CompressedKeyTableSm::InputSmScanState;

   static constexpr const char * kName = "CompressedKeyTableSm";
   static constexpr const char * kRootName = "RootSm3";
   static constexpr const char * kChildName = "PolicyMapCountersSm4";
   static constexpr const char * kScanTask =
      "VeloSdkRpc::CompressedKeyTableSm-RootSm3InputScanTask0";
   static std::vector< std::string > outputs() {
      return { "shortKeysShortKeyOutput", "shortKeysNextKeyOutput" };
   }

   static Lumo::Ptr< Sm > make( const World & world, const Ivx::SmControl & control ) {
      return compressedKeyTableSmFactory( world.tree.root, world.table, control );
   }
   static Lumo::Ptr< Sm > makeToo( const World & world, const Ivx::SmControl & control ) {
      return CompressedKeyTableSmIs( world.tree.root, world.table, control );
   }
   static Lumo::Ptr< Sm > makeWithoutRoot( const World & world ) {
      return compressedKeyTableSmFactory( nullptr, world.table, {} );
   }
   static const Lumo::Ptr< Root > & root( const Sm & sm ) { return sm.rootSm3(); }
   static void rootIs( Sm & sm, const Lumo::Ptr< const PolicyMapTypeCounters > & en ) {
      sm.rootSm3Is( en, &sm );
   }
   static void rootDel( Sm & sm ) { sm.rootSm3Del(); }
};

struct BacklogMachine {
   using Sm = PbrCountersBacklogSm;
   using Root = IlexCode::PbrCountersBacklogSm::RootSm0;
   using Child = IlexCode::PbrCountersBacklogSm::PolicyMapCountersSm1;
   using ScanState = IlexCode::PbrCountersBacklogSm::InputSmScanState;

   static constexpr const char * kName = "PbrCountersBacklogSm";
   static constexpr const char * kRootName = "RootSm0";
   static constexpr const char * kChildName = "PolicyMapCountersSm1";
   static constexpr const char * kScanTask =
      "VeloSdkRpc::PbrCountersBacklogSm-RootSm0InputScanTask0";
   static std::vector< std::string > outputs() {
      return { "backlogBacklogOutput", "shortKeysNovelKeyOutput", "shortKeysNextKeyOutput",
               "shortKeysShortKeyOutput" };
   }

   static Lumo::Ptr< Sm > make( const World & world, const Ivx::SmControl & control ) {
      return pbrCountersBacklogSmFactory( world.tree.root, world.backlog, world.table, control );
   }
   static Lumo::Ptr< Sm > makeToo( const World & world, const Ivx::SmControl & control ) {
      return PbrCountersBacklogSmIs( world.tree.root, world.backlog, world.table, control );
   }
   static Lumo::Ptr< Sm > makeWithoutRoot( const World & world ) {
      return pbrCountersBacklogSmFactory( nullptr, world.backlog, world.table, {} );
   }
   static const Lumo::Ptr< Root > & root( const Sm & sm ) { return sm.rootSm0(); }
   static void rootIs( Sm & sm, const Lumo::Ptr< const PolicyMapTypeCounters > & en ) {
      sm.rootSm0Is( en, &sm );
   }
   static void rootDel( Sm & sm ) { sm.rootSm0Del(); }
};

/// A test with one state machine over a world.
template< class Machine >
class MachineTest : public testing::Test, protected World {
 protected:
   using Sm = typename Machine::Sm;
   using Root = typename Machine::Root;
   using Child = typename Machine::Child;

   Ivx::SmControl control( std::uint8_t choice ) const {
      return Ivx::SmControl( loop.scheduler(), 3, {}, choice );
   }
   void start( std::uint8_t choice ) { sm = Machine::make( *this, control( choice ) ); }

   Root & root() const { return *Machine::root( *sm ); }
   /// The machine of a policy map, or null.
   Lumo::Ptr< Child > child( const std::string & policy ) const {
      return root().childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConst(
         PolicyMapKey( policy ) );
   }
   std::string bookmark() const { return std::string( root().inputScanBookmark0().name().view() ); }

   Loop loop;
   Lumo::Ptr< Sm > sm;
};

/// Which leaves were fed to the rules, as "policyKey=... name=...", in order.
inline std::vector< std::string > leavesFed( const Lumo::CapturingTraceSink & traces ) {
   std::vector< std::string > all;
   for ( const auto & message : traces.messages ) {
      if ( message.level != 7 || !message.text.starts_with( "input = from(" ) ) { continue; }
      const std::size_t begin = message.text.find( "policyKey=" );
      all.push_back( message.text.substr( begin, message.text.find( " counters" ) - begin ) );
   }
   return all;
}

/// The texts traced at `level`, in order.
inline std::vector< std::string > textsAt( const Lumo::CapturingTraceSink & traces, int level ) {
   std::vector< std::string > all;
   for ( const auto & message : traces.messages ) {
      if ( message.level == level ) { all.push_back( message.text ); }
   }
   return all;
}

/// A character that acts in the middle of whatever traces a text that begins with `text`, each
/// time.
class ActsOnTrace final : public Lumo::TraceSink {
 public:
   ActsOnTrace( std::string text, std::function< void() > act )
      : text_( std::move( text ) ), act_( std::move( act ) ), before_( Lumo::traceSinkIs( this ) ) {
      Lumo::traceLevelsIs( "*", Lumo::traceLevels( 0, 9 ) );
   }
   ~ActsOnTrace() override { Lumo::traceSinkIs( before_ ); }
   ActsOnTrace( const ActsOnTrace & ) = delete;
   ActsOnTrace & operator=( const ActsOnTrace & ) = delete;

   void emit( const Lumo::TraceRecord & record ) override {
      if ( acting_ || !record.text.starts_with( text_ ) ) { return; }
      acting_ = true;
      ++times;
      act_();
      acting_ = false;
   }

   int times = 0;

 private:
   const Lumo::TraceLevelsScope levelsBefore_;
   const std::string text_;
   const std::function< void() > act_;
   Lumo::TraceSink * const before_;
   bool acting_ = false;
};

/// A character that acts on every change of a node.
class ActsOnChange final : public Lumo::Node {
 public:
   using Act = std::function< void( short attributeId, const void * key, const void * value ) >;

   ActsOnChange( Lumo::Publisher * publisher, Act act ) : act_( std::move( act ) ) {
      publisher->subscriberAdd( slot_ );
   }

 private:
   void changed( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void * key,
                 const void * value ) {
      act_( attributeId, key, value );
   }

   const Act act_;
   Lumo::MemberSubscriber< ActsOnChange, &ActsOnChange::changed > slot_{ this };
};

} // namespace VeloSdkRpc::test
