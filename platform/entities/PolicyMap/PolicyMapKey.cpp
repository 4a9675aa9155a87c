#include "PolicyMap/PolicyMapKey.h"

#include <ostream>

#include "Quon/HashState.h"
#include "Quon/StringAttribute.h"

namespace PolicyMap::Counters {

PolicyMapKey::PolicyMapKey( const Lumo::String & name ) : name_( Quon::checkedString( name ) ) {}

PolicyMapKey::PolicyMapKey( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

void PolicyMapKey::nameIs( const Lumo::String & name ) { name_ = Quon::checkedString( name ); }

std::uint64_t PolicyMapKey::hash( unsigned seed ) const {
   Quon::HashState state( seed );
   state.mix( name_ );
   return state.result();
}

void PolicyMapKey::frell_shmemify( void * dst, Frell::Manager * manager ) const {
   manager->stringIs( Frell::imageAt< Image >( dst ).name, name_ );
}

void PolicyMapKey::frell_defrell( const void * src,
                                  Frell::SMgr< QuonFrell::EntityBase > * reader ) {
   const Lumo::String name = reader->string( Frell::imageAt< Image >( src ).name );
   if ( name.size() > Quon::kMaxStringLength ) {
      throw Frell::CorruptImage( "a policy map's name is longer than a name may be" );
   }
   name_ = name;
}

void PolicyMapKey::frell_restart( Frell::WMgr< QuonFrell::EntityBase > * writer ) {
   writer->takenOver();
}

std::ostream & operator<<( std::ostream & os, const PolicyMapKey & key ) {
   return Quon::printText( os, key );
}

} // namespace PolicyMap::Counters
