// The classes whose virtual slots expected_vtables.txt lists; compiled for the compiler's class
// layout dump only. A slot that a class leaves open has no name there, so each abstract class has
// a stand-in here that fills the open slots and shows their order.

#include "Lumo/Node.h"
#include "VeloSdkRpc/BgpLinkWeightMgr.h"
#include "VeloSdkRpc/FibOverrideMgr.h"
#include "VeloSdkRpc/MplsRouteHwProgrammingWatcher.h"
#include "VeloSdkRpc/PbrCountersMgr.h"
#include "VeloSdkRpc/SdkErrors.h"
#include "velo/mount_handler.h"

class MountHandler : public velo::mount_handler {
   void doMounts( const Lumo::Ptr< Keldb::MountGroup > &,
                  const Lumo::Ptr< QuonSharedMem::MountGroup > & ) override {}
   void onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > &,
                          const Lumo::Ptr< QuonSharedMem::EntityManager > & ) override {}
};

class PbrCountersFrontend : public VeloSdkRpc::PbrCountersFrontend {
   void appendItem( const VeloSdkRpc::PbrCounters &,
                    VeloSdkRpc::PbrCountersEncodingFlags ) override {}
   void push() override {}
};
