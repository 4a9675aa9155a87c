#include "VeloSdkRpc/detail/PbrCountersKey.h"

#include <ostream>

namespace VeloSdkRpc {

PbrCountersKey::PbrCountersKey( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

PbrCountersKey::PbrCountersKey( const Image * image, Frell::Manager & manager ) {
   Frell::SMgr< QuonFrell::EntityBase > reader( manager );
   frell_defrell( image, &reader );
}

void PbrCountersKey::frell_shmemify( void * dst, Frell::Manager * manager ) const {
   auto & image = Frell::imageAt< Image >( dst );
   policyKey_.frell_shmemify( &image.policyKey, manager );
   manager->stringIs( image.name, name_ );
   manager->stringIs( image.aclRule, aclRule_ );
}

void PbrCountersKey::frell_defrell( const void * src,
                                    Frell::SMgr< QuonFrell::EntityBase > * reader ) {
   const auto & image = Frell::imageAt< Image >( src );
   policyKey_.frell_defrell( &image.policyKey, reader );
   name_ = reader->string( image.name );
   aclRule_ = reader->string( image.aclRule );
}

void PbrCountersKey::frell_restart( Frell::WMgr< QuonFrell::EntityBase > * writer ) {
   policyKey_.frell_restart( writer ); // The strings need no work.
}

std::strong_ordering operator<=>( const PbrCountersKey & a, const PbrCountersKey & b ) {
   if ( &a == &b ) { return std::strong_ordering::equal; }
   if ( const auto order = a.policyKey_ <=> b.policyKey_; order != 0 ) { return order; }
   if ( const auto order = a.name_ <=> b.name_; order != 0 ) { return order; }
   return a.aclRule_ <=> b.aclRule_;
}

bool PbrCountersKey::isEq( const void * a, const void * b ) {
   if ( a == b ) { return true; }
   const auto & left = *static_cast< const PbrCountersKey * >( a );
   const auto & right = *static_cast< const PbrCountersKey * >( b );
   return left.name_ == right.name_ && left.aclRule_ == right.aclRule_ &&
          left.policyKey_ == right.policyKey_;
}

std::uint64_t PbrCountersKey::hash( unsigned seed ) const {
   Quon::HashState state( seed );
   state.mix( static_cast< std::uint32_t >( policyKey_.hash( 0 ) ) );
   state.mix( name_ );
   state.mix( aclRule_ );
   return state.result();
}

PbrCountersKey::operator bool() const { return *this != PbrCountersKey(); }

std::ostream & operator<<( std::ostream & os, const PbrCountersKey & key ) {
   return Quon::printText( os, key );
}

} // namespace VeloSdkRpc
