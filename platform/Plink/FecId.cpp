#include "Plink/FecId.h"

#include <ostream>

#include "Lumo/Assert.h"

namespace Plink::Fib {

AdjType FecId::adjType() const {
   // Spelt this way because the text of the condition is what an operator finds in the log.
   // clang-format off
   LUMO_ASSERT((value_ >> Fib::adjTypePos()) < Fib::adjTypeMax());
   // clang-format on
   return static_cast< AdjType >( value_ >> adjTypePos() );
}

std::ostream & operator<<( std::ostream & os, const FecId & fecId ) {
   return Quon::printText( os, fecId );
}

} // namespace Plink::Fib
