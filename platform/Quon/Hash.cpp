#include "Quon/Hash.h"

#include "Lumo/Hash.h"

namespace Quon::Impl {

constinit std::uint64_t processHashSeed = 0;

namespace {

[[gnu::constructor( 101 )]] void takeProcessHashSeed() {
   processHashSeed = Lumo::processHashSeed();
}

} // namespace

} // namespace Quon::Impl
