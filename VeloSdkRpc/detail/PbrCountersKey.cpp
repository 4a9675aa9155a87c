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

PbrCountersKey::operator bool() const { return *this != PbrCountersKey(); }

std::ostream & operator<<( std::ostream & os, const PbrCountersKey & key ) {
   return Quon::printText( os, key );
}

} // namespace VeloSdkRpc
