#include "VeloSdkRpc/detail/PbrCountersKeyCompressionTable.h"

namespace VeloSdkRpc {

PbrCountersKeyCompressionTable::PbrCountersKeyCompressionTable() = default;
PbrCountersKeyCompressionTable::~PbrCountersKeyCompressionTable() = default;

const Quon::TypeData & PbrCountersKeyCompressionTable::typeData() const {
   static constexpr std::string_view kAttributes[] = { "shortKey", "nextKey", "novelKey" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::PbrCountersKeyCompressionTable",
                                          kAttributes };
   return kType;
}

void PbrCountersKeyCompressionTable::shortKeyIs( const PbrCountersKey & key, std::uint64_t value ) {
   const bool known = !shortKey_.memberIs( key, value ).inserted;
   pairingsBroken_ += known;
}

std::uint64_t PbrCountersKeyCompressionTable::shortKeyDel( const PbrCountersKey & key ) {
   const std::optional< std::uint64_t > held = shortKey_.takeMember( key );
   pairingsBroken_ += held.has_value();
   return held.value_or( 0 );
}

void PbrCountersKeyCompressionTable::shortKeyDelAll() {
   shortKey_.memberDelAll();
   ++pairingsBroken_;
}

void PbrCountersKeyCompressionTable::novelKeyIs( std::uint64_t shortKey ) {
   novelKey_.memberIs( shortKey );
}

void PbrCountersKeyCompressionTable::novelKeyDel( std::uint64_t shortKey ) {
   novelKey_.deleteMember( shortKey );
}

void PbrCountersKeyCompressionTable::novelKeyDelAll() { novelKey_.memberDelAll(); }

bool PbrCountersKeyCompressionTable::isNovelKey( std::uint64_t shortKey ) {
   return novelKey_.deleteMember( shortKey );
}

void PbrCountersKeyCompressionTable::clearNovelKeys() { novelKeyDelAll(); }

Lumo::Ptr< PbrCountersKeyCompressionTable > pbrCountersKeyCompressionTableFactory() {
   return Lumo::makeNode< PbrCountersKeyCompressionTable >();
}

Lumo::Ptr< PbrCountersKeyCompressionTable > PbrCountersKeyCompressionTableIs() {
   return pbrCountersKeyCompressionTableFactory();
}

} // namespace VeloSdkRpc
