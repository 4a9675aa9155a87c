/// What the last messages of a stream told, so that they can be undone for a client that comes back
/// without having seen them.
///
///    sequence   │ 7 │  8   │ 9 │ 10 │          what can be undone: all behind 6
///    records    │···│······│···│····│
///
/// Owner      the stream
/// Thread     event loop only
/// Memory     eight bytes a record, sixteen a message; whole messages are dropped from the front
///            when there is more than so much of both

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>

namespace VeloAgent {

class UndoLog {
 public:
   struct Told {
      std::uint64_t shortKey; ///< Below 2^62.
      bool first;
      bool gone;
   };

   explicit UndoLog( std::size_t most ) : most_( most ) {}

   /// The message being composed tells this.
   void told( const Told & told );

   /// The message being composed is complete; returns its number. What it pushes out of the log is
   /// told to `dropped( const Told & )`.
   template< class Dropped >
   std::uint64_t messageEnds( Dropped dropped );

   /// The number of the last message.
   std::uint64_t last() const { return last_; }
   /// Whether `sequence` is a message that was not undone, and all behind it can be undone.
   bool reaches( std::uint64_t sequence ) const {
      return sequence == oldest_ ||
             std::ranges::binary_search( messages_, sequence, {}, &Message::sequence );
   }

   /// Undoes all messages behind `sequence`: tells `undo( const Told & )` what was in them, from
   /// the last to the first. Only if it reaches `sequence`. Numbers are not used again: what a
   /// client that has seen more knows is not known here any more.
   template< class Undo >
   void undoBehind( std::uint64_t sequence, Undo undo );

 private:
   struct Message {
      std::uint64_t sequence;
      std::size_t records;
   };

   static std::uint64_t packed( const Told & told );
   static Told unpacked( std::uint64_t record );

   std::size_t most_;
   std::uint64_t last_ = 0;
   std::uint64_t oldest_ = 0; ///< The last message that was dropped.
   std::size_t inMessage_ = 0;
   std::deque< Message > messages_;
   std::deque< std::uint64_t > records_;
};

inline std::uint64_t UndoLog::packed( const Told & told ) {
   return told.shortKey << 2 | std::uint64_t{ told.first } << 1 | std::uint64_t{ told.gone };
}

inline UndoLog::Told UndoLog::unpacked( std::uint64_t record ) {
   return { .shortKey = record >> 2, .first = ( record & 2 ) != 0, .gone = ( record & 1 ) != 0 };
}

inline void UndoLog::told( const Told & told ) {
   records_.push_back( packed( told ) );
   ++inMessage_;
}

template< class Dropped >
std::uint64_t UndoLog::messageEnds( Dropped dropped ) {
   messages_.push_back( { ++last_, std::exchange( inMessage_, 0 ) } );
   while ( records_.size() + messages_.size() > most_ ) {
      oldest_ = messages_.front().sequence;
      for ( std::size_t n = messages_.front().records; n > 0; --n ) {
         dropped( unpacked( records_.front() ) );
         records_.pop_front();
      }
      messages_.pop_front();
   }
   return last_;
}

template< class Undo >
void UndoLog::undoBehind( std::uint64_t sequence, Undo undo ) {
   while ( !messages_.empty() && messages_.back().sequence > sequence ) {
      for ( std::size_t n = messages_.back().records; n > 0; --n ) {
         undo( unpacked( records_.back() ) );
         records_.pop_back();
      }
      messages_.pop_back();
   }
}

} // namespace VeloAgent
