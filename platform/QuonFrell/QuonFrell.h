#pragma once

#include "Frell/Frell.h"
#include "Quon/Entity.h"

/// QuonFrell: images of the entity runtime's values.
///
/// A value type `T` that can live in a shared-memory entity has a `struct Image` (Frell/Image.h)
/// and these three:
///
///    /// Writes this value over the image at `dst`, which lets go of what it held.
///    void frell_shmemify( void * dst, Frell::Manager * manager ) const;
///    /// Takes its value from the image at `src`.
///    void frell_defrell( const void * src, Frell::SMgr< QuonFrell::EntityBase > * reader );
///    /// Called on an image's value when the image's writer starts again and takes it over.
///    void frell_restart( Frell::WMgr< QuonFrell::EntityBase > * writer );
///
/// A failing hook leaves its target partly written but valid: every field is the old or the new.
namespace QuonFrell {

/// What every entity that an image can hold derives from.
using EntityBase = Quon::Entity;

/// A string attribute's image.
using String = Frell::String;

/// Empties the image of a `T` at `image`: it lets go of all that it held.
template< class T >
void imageClear( void * image, Frell::Manager & manager ) {
   T().frell_shmemify( image, &manager );
}

/// The value of the image at `image`.
template< class T >
T imageValue( const void * image, const Frell::Manager & manager ) {
   Frell::SMgr< EntityBase > reader( manager );
   T value;
   value.frell_defrell( image, &reader );
   return value;
}

/// Takes over the image of a `T` at `image` for a writer that starts again.
template< class T >
void imageRestart( void * image, Frell::WMgr< EntityBase > & writer ) {
   T value = imageValue< T >( image, writer.manager() );
   value.frell_restart( &writer );
   value.frell_shmemify( image, &writer.manager() );
}

} // namespace QuonFrell
