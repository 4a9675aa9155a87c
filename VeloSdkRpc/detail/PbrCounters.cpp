#include "VeloSdkRpc/detail/PbrCounters.h"

#include <ostream>

namespace VeloSdkRpc {

PbrCounters::PbrCounters( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

PbrCounters::PbrCounters( const Image * image, Frell::Manager & manager ) {
   Frell::SMgr< QuonFrell::EntityBase > reader( manager );
   frell_defrell( image, &reader );
}

void PbrCounters::frell_shmemify( void * dst, Frell::Manager * manager ) const {
   auto & image = Frell::imageAt< Image >( dst );
   image.shortKey = shortKey_;
   longKey_.frell_shmemify( &image.longKey, manager );
   manager->entityIs( image.data, data_ );
   image.deletedKey.value = deletedKey_;
}

void PbrCounters::frell_defrell( const void * src, Frell::SMgr< QuonFrell::EntityBase > * reader ) {
   const auto & image = Frell::imageAt< Image >( src );
   shortKey_ = image.shortKey;
   longKey_.frell_defrell( &image.longKey, reader );
   data_ = reader->entity< PolicyMap::Counters::CountersData >( image.data );
   deletedKey_ = reader->flag( image.deletedKey );
}

void PbrCounters::frell_restart( Frell::WMgr< QuonFrell::EntityBase > * writer ) {
   longKey_.frell_restart( writer ); // Everything else needs no work.
}

PbrCounters::operator bool() const { return *this != PbrCounters(); }

std::ostream & operator<<( std::ostream & os, const PbrCounters & record ) {
   return Quon::printText( os, record );
}

} // namespace VeloSdkRpc
