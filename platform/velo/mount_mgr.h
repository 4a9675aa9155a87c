#pragma once

#include <stdexcept>

#include "Keldb/Keldb.h"
#include "Lumo/Export.h"
#include "Lumo/Link.h"
#include "Lumo/Ptr.h"
#include "QuonSharedMem/QuonSharedMem.h"
#include "velo/mount_handler.h"

namespace velo {

/// The mount protocol was used wrongly: a mistake in the program, found before anything depends on
/// the mounts. `what()` says what was wrong. Not of the family of `velo::error`: no client can do
/// anything about it.
class VELO_PLATFORM_EXPORT mount_protocol_error final : public std::logic_error {
 public:
   using std::logic_error::logic_error;
   ~mount_protocol_error() override;
};

/// Runs the mount protocol for the handlers that registered themselves:
///
///    every handler's doMounts       in order of registration, into one pair of groups
///    the mounts are checked, then completed: what is to be made and not there is made
///    every handler's onMountsComplete                             in the same order
///
/// A handler that registers itself meanwhile takes part: before the check in the same pass, after
/// it in a further one. One that is destroyed meanwhile is not called any more.
///
/// Whether any other entity is there, and of which type, is not checked: that concerns the handler
/// that wants it, and one missing status must not keep the others from starting.
///
/// Owner      the host; must not go while `mountAll` runs
/// Thread     event loop only (checked in debug builds)
class VELO_PLATFORM_EXPORT mount_mgr {
 public:
   /// Neither may be null.
   mount_mgr( const Lumo::Ptr< Keldb::EntityManager > & entities,
              const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities );
   ~mount_mgr();

   mount_mgr( const mount_mgr & ) = delete;
   mount_mgr & operator=( const mount_mgr & ) = delete;

   /// Runs the protocol. A second call raises `mount_protocol_error`, and so does a mount that
   /// cannot be meant: without a path, without a type, for nothing (no flags), of a path that is
   /// mounted with another type too, by path alone where the database keeps no type, or of a type
   /// that is to be made and does not exist. What a handler throws passes through and ends the
   /// protocol.
   void mountAll();

 private:
   friend class mount_handler;

   enum class State : unsigned char { collectingHandlers, mounting, done };

   struct Handlers : Lumo::Link {
      Handlers() { ringBegin(); }
   };

   void registerHandler( mount_handler & handler );
   mount_handler * firstHandler( mount_handler::Stage stage );
   void onePass();

   const Lumo::Ptr< Keldb::EntityManager > entities_;
   const Lumo::Ptr< QuonSharedMem::EntityManager > sharedMemEntities_;
   Handlers handlers_; ///< In order of registration.
   State state_ = State::collectingHandlers;
};

} // namespace velo
