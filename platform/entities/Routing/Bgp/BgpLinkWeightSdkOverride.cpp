#include "Routing/Bgp/BgpLinkWeightSdkOverride.h"

#include "Quon/EntityTypes.h"

namespace Routing::Bgp {
namespace {

const Quon::EntityTypeRegistration< BgpLinkWeightSdkOverride > registered;

} // namespace

BgpLinkWeightSdkOverride::BgpLinkWeightSdkOverride() : entries_( *this ) {}

BgpLinkWeightSdkOverride::~BgpLinkWeightSdkOverride() = default;

const Quon::TypeData & BgpLinkWeightSdkOverride::typeData() const {
   static constexpr std::string_view kAttributes[] = { "bgpLinkWeightSdkOverrideEntry" };
   static constexpr Quon::TypeData type{ kTypeName, kAttributes };
   return type;
}

} // namespace Routing::Bgp
