#include "Mpls/Status.h"

#include <string_view>

namespace Mpls::Hardware {

Status::Status() : routes_( *this ) {}

Status::~Status() = default;

const Quon::TypeData & Status::typeData() const {
   static constexpr std::string_view kAttributes[] = { "route" };
   static constexpr Quon::TypeData type{ "Mpls::Hardware::Status", kAttributes };
   return type;
}

} // namespace Mpls::Hardware
