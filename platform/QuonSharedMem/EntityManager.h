#pragma once

#include <set>

#include "Lumo/Export.h"
#include "Quon/EntitiesByPath.h"

namespace QuonSharedMem {

/// The mounted shared-memory entities, by path. The host says which of them their writer is working
/// on; those must not be read.
///
///    if ( !entities->accessIsSafe() ) { entities->assertSafeToAccess( entity, path ); }
///
/// Thread     event loop only
class VELO_PLATFORM_EXPORT EntityManager final : public Quon::EntitiesByPath {
 public:
   EntityManager();
   ~EntityManager() override;

   /// Whether every entity may be read now, so that no single one needs to be checked.
   bool accessIsSafe() const { return beingWritten_.empty(); }

   /// Fatal when `entity`, which is the one at `path`, may not be read now. A null one may: there
   /// is nothing to read.
   void assertSafeToAccess( const Lumo::Ptr< Quon::Entity > & entity,
                            const Lumo::String & path ) const;

   /// For the host: the writer of what is at `path` begins or has ended its work on it.
   void beingWrittenIs( const Lumo::String & path, bool beingWritten );

 private:
   std::set< Lumo::String > beingWritten_;
};

} // namespace QuonSharedMem
