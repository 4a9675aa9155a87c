#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "VeloSdkRpc/PbrCountersMgr.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/CountersTree.h"
#include "VeloSdkRpc/test/Loop.h"
#include "VeloSdkRpc/test/RunsConform.h"

namespace VeloSdkRpc::test {

/// A manager with a tree to mount and a loop that drains its backlog.
class MgrFixture : public testing::Test {
 protected:
   MgrFixture() { shared->entityIs( kPath, tree.root ); }

   static inline const Lumo::String kPath = "policyMap/counters/pbr";

   void mount() { mounts.mountAll(); }
   void destroyMgr() { mgr_.reset(); }
   PbrPolicyCountersMgr & mgr() { return *mgr_; }

   static PbrCountersKey longKey( const std::string & policy, const std::string & name ) {
      return PbrCountersKey( PolicyMapKey( policy ), name, {} );
   }
   /// 0 if it has none.
   std::uint64_t shortKey( const std::string & policy, const std::string & name ) {
      const auto * entry = mgr().shortKeys()->shortKey()[longKey( policy, name )];
      return entry ? entry->value() : 0;
   }
   bool idle() { return mgr().compressedKeyTableSm() && !mgr().pbrCountersBacklogSm(); }
   bool streaming() { return mgr().pbrCountersBacklogSm() && !mgr().compressedKeyTableSm(); }
   std::size_t pending() { return mgr().backlog()->backlog().size(); }
   std::size_t novel() { return mgr().shortKeys()->novelKey().size(); }

   static Lumo::Ptr< ReconstructingConsumer > newConsumer() {
      return Lumo::makeNode< ReconstructingConsumer >();
   }
   static Lumo::Ptr< RecordingConsumer > newRecorder() {
      return Lumo::makeNode< RecordingConsumer >();
   }

   const RunsConform runsConform;
   Loop loop;
   CountersTree tree;
   const Lumo::Ptr< Keldb::EntityManager > entities = Lumo::makeNode< Keldb::EntityManager >();
   const Lumo::Ptr< QuonSharedMem::EntityManager > shared =
      Lumo::makeNode< QuonSharedMem::EntityManager >();
   velo::mount_mgr mounts{ entities, shared };

 private:
   std::unique_ptr< PbrPolicyCountersMgr > mgr_ =
      std::make_unique< PbrPolicyCountersMgr >( &mounts );
};

/// A slot that hears nothing and tells whether its publisher is still there.
class Witness : public Lumo::Subscriber {
 public:
   explicit Witness( Lumo::Publisher * publisher ) : Subscriber( &ignore ) {
      publisher->subscriberAdd( *this );
   }
   bool sees() const { return subscribed(); }

 private:
   static void ignore( Lumo::Publisher *, Lumo::Subscriber *, short, const void *, const void * ) {}
};

/// Hears every change of a backlog and does something about it.
class BacklogListener final : public Lumo::Node {
 public:
   BacklogListener( const Lumo::Ptr< PbrCountersBacklog > & backlog,
                    std::function< void( short ) > act )
      : act_( std::move( act ) ) {
      backlog->publisher()->subscriberAdd( slot_ );
   }

 private:
   void heard( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void *,
               const void * ) {
      act_( attributeId );
   }

   const std::function< void( short ) > act_;
   Lumo::MemberSubscriber< BacklogListener, &BacklogListener::heard > slot_{ this };
};

/// Does something at every message that a state machine traces with `text`.
class AtTrace final : public Lumo::TraceSink {
 public:
   AtTrace( std::string text, std::function< void() > act )
      : text_( std::move( text ) ), act_( std::move( act ) ) {
      Lumo::traceLevelsIs( "Ivx", Lumo::traceLevels( 9 ) );
   }
   ~AtTrace() override { Lumo::traceSinkIs( before_ ); }
   AtTrace( const AtTrace & ) = delete;
   AtTrace & operator=( const AtTrace & ) = delete;

   void emit( const Lumo::TraceRecord & record ) override {
      if ( record.text == text_ ) { act_(); }
   }

 private:
   const std::string text_;
   const std::function< void() > act_;
   const Lumo::TraceLevelsScope levelsBefore_;
   Lumo::TraceSink * const before_ = Lumo::traceSinkIs( this );
};

} // namespace VeloSdkRpc::test
