#include "World.h"

#include <algorithm>

namespace VeloSdkRpc::simulation {
namespace {

constexpr unsigned kPolicies = 3, kClasses = 4;

/// More runs than any pending records can need.
constexpr int kRunsUntilQuiet = 10'000;

} // namespace

/// Keeps the contract: it begins with nothing when streaming begins, and drops the record in hand
/// if it starts anew in the middle of being told.
class World::Client final : public test::ReconstructingConsumer {
 public:
   Client( World & world, unsigned number ) : stream( number ), world_( world ) {}

   void appendItem( const PbrCounters & record, PbrCountersEncodingFlags flags ) override {
      const unsigned lifeOfRecord = life;
      world_.delivered( *this, record, flags );
      if ( life != lifeOfRecord ) { return; }
      isPushed = false;
      if ( flags.deleteKey() && world_.mistake_ == Mistake::forgetsDeletions ) { return; }
      ReconstructingConsumer::appendItem( record, flags );
   }
   void push() override {
      isPushed = true;
      world_.pushed( *this );
   }
   /// The record in hand is not taken.
   void drop() { ++life; }
   void forget() {
      drop();
      told.clear();
      state.clear();
      isPushed = true;
   }

   const unsigned stream; ///< The number of the one that it watches.
   unsigned life = 0;
   bool isPushed = true; ///< Since it was told a record.

 private:
   World & world_;
};

World::World( Mistake mistake ) : mistake_( mistake ) {}

World::~World() {
   consumerRests_ = true;
   streamDel();
}

void World::play( const Script & script ) {
   for ( const Step & step : script ) { play( step ); }
}

void World::play( const Step & step ) {
   ++happenings_.steps;
   if ( step.call != Step::kAtOnce && isForCalls( step.verb ) ) {
      const auto call = static_cast< std::size_t >( step.call );
      if ( calls_.size() <= call ) { calls_.resize( call + 1 ); }
      calls_[call].push_back( { step.verb, step.n } );
      return;
   }
   switch ( step.verb ) {
   case Verb::slicesOf:
      loop_.yieldsAfter( step.n % 5 );
      break;
   case Verb::slice:
      slice();
      break;
   case Verb::settle:
      settle();
      break;
   case Verb::fail: // Nobody is there to throw.
      break;
   default:
      perform( step );
   }
   checkStep();
}

void World::perform( const Step & step ) {
   switch ( step.verb ) {
   case Verb::start:
      return startWatching( Lumo::makeNode< Client >( *this, streams_ ) );
   case Verb::startAgain:
      return startWatching( consumer_ ? consumer_ : Lumo::makeNode< Client >( *this, streams_ ) );
   case Verb::stop:
      return stopWatching();
   case Verb::fail:
      throw test::ConsumerBroke();
   case Verb::mount:
      if ( !stream_ ) {
         toldKeys_ = ToldKeys();
         leftBehind_ = nullptr;
         streamIs( managedStream( tree_.root, step.n ) );
      }
      return;
   case Verb::destroy:
      leftBehind_ = nullptr;
      return streamDel();
   case Verb::leave:
      if ( stream_ ) { leftBehind_ = stream_->backlog(); }
      return streamDel();
   case Verb::restart:
      if ( !stream_ && leftBehind_ ) {
         leftBehind_->frontendIs( nullptr ); // Consumers have no second life.
         streamIs( restartedStream( tree_.root, leftBehind_, step.n, mistake_ ) );
      }
      return;
   default:
      return changeTree( step );
   }
}

// The tree ----------------------------------------------------------------------------------------

/// What the stream may say to a change of the tree: an idle one refuses a policy map without
/// counters; a scan in progress knows no short key of what goes before its turn.
void World::changeTree( const Step & step ) {
   try {
      change( step );
   } catch ( const Quon::NullPointerException & ) {
      require( step.verb == Verb::addNullPolicy && stream_ && !streaming(),
               "a change of the tree was refused" );
   } catch ( const Quon::BadOptionalAccess & ) {
      require( stream_ && !stream_->scanned(), "a class that goes has no short key" );
   }
}

/// Only what is legal: an entry is replaced by another entity only after its removal, and none is
/// left without counters while a machine watches them.
void World::change( const Step & step ) {
   const std::string policy = "policy" + std::to_string( step.n % kPolicies );
   const std::string name = "class" + std::to_string( step.n / kPolicies % kClasses );
   auto * const map = tree_.policyMap( policy );
   const auto * const entry = map ? map->classCounters()[Lumo::String( name )] : nullptr;
   const bool hasCounters = entry && entry->value();
   const auto changes = [this, &policy, &name] { changed_.emplace( policy, name ); };
   switch ( step.verb ) {
   case Verb::addPolicy:
      if ( !map ) { tree_.addPolicy( policy ); }
      break;
   case Verb::addNullPolicy:
      if ( const PolicyMap::Counters::PolicyMapKey key( policy );
           !tree_.root->policyMapCounters()[key] ) {
         tree_.root->policyMapCountersIs( key, nullptr );
      }
      break;
   case Verb::removePolicy:
      tree_.removePolicy( policy );
      break;
   case Verb::addClass:
      if ( !hasCounters ) {
         changes();
         tree_.addClass( policy, name, ++packets_ );
      }
      break;
   case Verb::listClass:
      if ( !hasCounters || !streaming() ) { tree_.addClassWithoutCounters( policy, name ); }
      break;
   case Verb::removeClass:
      tree_.removeClass( policy, name );
      break;
   case Verb::count:
      if ( hasCounters ) {
         changes();
         tree_.count( policy, name, ++packets_ );
      }
      break;
   default:
      break;
   }
}

Contents World::visible() const {
   return stream_ && stream_->mounted() ? tree_.contents() : Contents();
}

// Who watches -------------------------------------------------------------------------------------

void World::startWatching( const Lumo::Ptr< Client > & client ) {
   if ( !stream_ ) { return; }
   if ( !streaming() ) {
      client->forget();
      sinceStart_ = true;
      changed_.clear();
      toldKeys_.streamBegins( stream_->table().nextKey() );
   } else if ( client != consumer_ ) {
      sinceStart_ = false;
      changed_.clear();
   }
   consumer_ = client;
   stream_->start( client );
}

void World::stopWatching() {
   if ( !streaming() ) { return; }
   toldKeys_.streamEnds();
   atStop_ = visible();
   sinceStart_ = sinceStart_ && stream_->scanned(); // Of the rest it will not be told.
   stream_->stop();
   require( stream_->table().novelKey().empty(), "keys are novel though streaming has stopped" );
}

void World::streamIs( std::unique_ptr< Stream > stream ) {
   ++streams_;
   ++happenings_.streams;
   stream_ = std::move( stream );
}

void World::streamDel() {
   consumer_ = nullptr;
   stream_.reset();
}

// Time --------------------------------------------------------------------------------------------

void World::slice() {
   streamsBeforeSlice_ = streams_;
   ++happenings_.runs;
   try {
      loop_.runOne();
   } catch ( const test::ConsumerBroke & ) {}
   require( runs_.difference().empty(), runs_.difference().c_str() );
}

void World::settle() {
   consumerRests_ = true;
   for ( int runs = 0; loop_.pending() != 0; ++runs ) {
      require( runs < kRunsUntilQuiet, "the stream never gets quiet" );
      slice();
   }
   consumerRests_ = false;
   if ( stream_ && consumer_ ) { askOracle(); }
}

void World::askOracle() {
   ++happenings_.verdicts;
   require( stream_->backlog()->backlog().empty(), "records are pending and nobody runs" );
   require( stream_->scanned(), "the scans are not done and nobody runs" );
   require( consumer_->isPushed, "a batch was not pushed" );
   const Contents known = consumer_->contents();
   if ( !streaming() ) {
      const auto sameName = []( const auto & a, const auto & b ) { return a.first == b.first; };
      require( !sinceStart_ || std::ranges::equal( known, atStop_, sameName ),
               "a stopped consumer does not know the classes that there were" );
      return;
   }
   const Contents now = visible();
   if ( sinceStart_ ) {
      require( known == now, "the consumer does not know the tree" );
      if ( stream_->mounted() ) {
         require( known == coldStart( tree_.root, loop_ ),
                  "the consumer knows something else than after a cold start" );
      }
      return;
   }
   for ( const auto & [name, packets] : known ) {
      const auto at = now.find( name );
      require( at != now.end() && at->second == packets, "the successor knows what is not so" );
   }
   for ( const Name & name : changed_ ) {
      require( known.contains( name ) == now.contains( name ),
               "the successor does not know of a change" );
   }
}

void World::checkStep() {
   if ( !stream_ ) { return; }
   require( stream_->backlog()->account().isBalanced(), "the account does not balance" );
   if ( stream_->tableIsExact() ) {
      require( stream_->table().shortKey().size() == visible().size(),
               "the table has other classes than the tree" );
   }
}

// The consumer ------------------------------------------------------------------------------------

void World::delivered( Client & client, const PbrCounters & record,
                       PbrCountersEncodingFlags flags ) {
   ++happenings_.records;
   if ( client.stream != streams_ || !stream_ ) { // What a run of before still has in hand.
      require( client.stream >= streamsBeforeSlice_, "told by a stream that is long gone" );
      return called();
   }
   require( &client == consumer_.get(), "told is one that does not watch" );
   toldKeys_.told( record, flags );
   const unsigned stream = streams_;
   try {
      called();
   } catch ( const test::ConsumerBroke & ) {
      if ( mistake_ != Mistake::losesWhatWasThrownAt ) { throw; }
      return client.drop();
   }
   if ( stream == streams_ ) { toldKeys_.took( record, flags ); }
}

void World::pushed( Client & client ) {
   require( &client == consumer_.get() || client.stream != streams_ || !stream_,
            "pushed is one that does not watch" );
   called();
}

void World::called() {
   if ( consumerRests_ || calls_.empty() ) { return; }
   const Script deeds = std::move( calls_.front() );
   calls_.pop_front();
   for ( const Step & deed : deeds ) {
      ++happenings_.deedsInCalls;
      perform( deed );
   }
}

} // namespace VeloSdkRpc::simulation
