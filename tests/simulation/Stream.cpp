#include "Stream.h"

namespace VeloSdkRpc::simulation {
namespace {

class ManagedStream final : public Stream {
 public:
   ManagedStream( const TreeRoot & root, unsigned n ) : mounted_( n % 8 < 6 ) {
      if ( mounted_ ) {
         shared_->entityIs( kPath, root );
      } else if ( n % 8 == 6 ) { // Of another type.
         shared_->entityIs( kPath, Lumo::makeNode< PolicyMap::Counters::CountersData >( "no" ) );
      }
      mounts_.mountAll();
   }

   void start( const Lumo::Ptr< PbrCountersFrontend > & frontend ) override {
      mgr_.startWatching( frontend );
   }
   void stop() override { mgr_.stopWatching(); }
   bool streaming() const override { return static_cast< bool >( mgr_.pbrCountersBacklogSm() ); }
   const Lumo::Ptr< PbrCountersBacklog > & backlog() const override { return mgr_.backlog(); }
   bool mounted() const override { return mounted_; }
   bool scanned() const override { return true; }
   bool tableIsExact() const override { return true; }

 private:
   static constexpr const char * kPath = "policyMap/counters/pbr";

   const bool mounted_;
   const Lumo::Ptr< QuonSharedMem::EntityManager > shared_ =
      Lumo::makeNode< QuonSharedMem::EntityManager >();
   velo::mount_mgr mounts_{ Lumo::makeNode< Keldb::EntityManager >(), shared_ };
   PbrPolicyCountersMgr mgr_{ &mounts_ };
};

class RestartedStream final : public Stream {
 public:
   RestartedStream( const TreeRoot & root, const Lumo::Ptr< PbrCountersBacklog > & backlog,
                    unsigned n, Mistake mistake )
      : root_( root ),
        backlog_( backlog ),
        control_( nullptr, 0, {}, static_cast< std::uint8_t >( 1 + n % 2 ) ),
        mistake_( mistake ) {
      idle();
   }
   ~RestartedStream() override { letGo(); }

   void start( const Lumo::Ptr< PbrCountersFrontend > & frontend ) override {
      if ( !streaming_ ) {
         letGo();
         if ( mistake_ != Mistake::keepsWhatARunHasTaken ) { backlog_->allFiledAnew(); }
         Records old;
         if ( mistake_ == Mistake::doesNotReconcile ) { old = records(); }
         streaming_ = PbrCountersBacklogSmIs( root_, backlog_, backlog_->shortKeys(), control_ );
         for ( const PbrCounters & record : old ) {
            if ( !backlog_->backlog()[record.shortKey()] ) { backlog_->backlogIs( record ); }
         }
      }
      backlog_->frontendIs( frontend );
   }
   void stop() override {
      if ( !idle_ ) { idle(); }
   }
   bool streaming() const override { return static_cast< bool >( streaming_ ); }
   const Lumo::Ptr< PbrCountersBacklog > & backlog() const override { return backlog_; }
   bool mounted() const override { return true; }
   bool scanned() const override { return streaming_ ? streaming_->ready() : idle_->ready(); }
   bool tableIsExact() const override { return false; }

 private:
   using Records = std::vector< PbrCounters >;

   void idle() {
      letGo();
      idle_ = CompressedKeyTableSmIs( root_, backlog_->shortKeys(), control_ );
      backlog_->shortKeys()->clearNovelKeys();
   }
   void letGo() {
      if ( streaming_ ) { streaming_->hasNotificationActiveIs( false ); }
      if ( idle_ ) { idle_->hasNotificationActiveIs( false ); }
      streaming_ = nullptr;
      idle_ = nullptr;
   }
   Records records() const {
      Records all;
      for ( const auto & entry : backlog_->backlog() ) { all.push_back( entry.value() ); }
      return all;
   }

   const TreeRoot root_;
   const Lumo::Ptr< PbrCountersBacklog > backlog_;
   const Ivx::SmControl control_;
   const Mistake mistake_;
   Lumo::Ptr< CompressedKeyTableSm > idle_;
   Lumo::Ptr< PbrCountersBacklogSm > streaming_;
   const Lumo::Ptr< PbrCountersBacklogTask > task_ =
      PbrCountersBacklogTaskIs( "PbrCountersStream", backlog_ );
};

} // namespace

std::unique_ptr< Stream > managedStream( const TreeRoot & root, unsigned n ) {
   return std::make_unique< ManagedStream >( root, n );
}

std::unique_ptr< Stream > restartedStream( const TreeRoot & root,
                                           const Lumo::Ptr< PbrCountersBacklog > & backlog,
                                           unsigned n, Mistake mistake ) {
   return std::make_unique< RestartedStream >( root, backlog, n, mistake );
}

} // namespace VeloSdkRpc::simulation
