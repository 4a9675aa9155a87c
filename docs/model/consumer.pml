/* The consumer as the contract wants it, what it is owed, and the invariants.

   The consumer keeps the set of short keys that it was told. It starts from nothing each time it
   starts watching, and drops a record in hand that comes from before that. It reads the counters
   when it is called, and believes what it was told when it returns. */

bool toldSet[SHORT_KEYS + 1];
bool current[SHORT_KEYS + 1]; /* It read the counters after their last change while streaming. */
bool handCurrent;             /* The same of the record in hand. */
bool notForMe;                /* The record in hand is told to a predecessor, or comes from before
                                 a new start. */

/* The ledger: what somebody who sees everything writes down. The system knows nothing of it. */
byte longKeyOf[SHORT_KEYS + 1];   /* What a short key was handed out for, plus 1; 0: nothing. */
bool promised[SHORT_KEYS + 1];    /* The consumer will know it when nothing is pending. */
bool handPromised;                /* ... and the record in hand, if its delivery fails. */
bool longKeyOwed[SHORT_KEYS + 1]; /* It appeared in this stream, and nobody was told since. */
bool sinceStart;                  /* The consumer watches since the stream began. */
byte runsMissed[SHORT_KEYS + 1];  /* How many runs in a row have left the record of a key over. */

#define live( k ) ( longKeyOf[k] != 0 && shortKey[longKeyOf[k] - 1] == k )

/* What the machines do -------------------------------------------------------------------------*/

inline handedOut( k, l ) {
   holds( OneLongKeyPerShortKey, longKeyOf[k] == 0 );
   longKeyOf[k] = l + 1
}

inline appeared( k ) { longKeyOwed[k] = true }

inline changed( k ) {
   current[k] = false;
   handCurrent = handCurrent && inHand != k;
   promised[k] = frontend
}

inline goneWhileIdle( k ) {
#ifdef LIMIT_ToldOfDeletionsWhileIdle
   promised[k] = false
#else
   skip
#endif
}

inline gone( k ) {
   promised[k] = false;
   handPromised = handPromised && inHand != k
}

/* What the manager does ------------------------------------------------------------------------*/

#ifdef LIMIT_RemembersOverStarts
#define remembers true
#else
#define remembers false
#endif

inline startsWith( known ) {
#ifndef LIMIT_KeepsRecordInHand
   notForMe = running;
#endif
   handPromised = false;
   for ( j : 1 .. SHORT_KEYS ) {
      toldSet[j] = toldSet[j] && known;
      current[j] = current[j] && known
   }
}

inline startedAnew( somebody ) {
   sinceStart = somebody;
   startsWith( remembers && somebody );
   for ( j : 1 .. SHORT_KEYS ) {
      promised[j] = somebody && live( j );
      longKeyOwed[j] = false
   }
}

/* What the run in progress has still to process after the entry in hand. */
#define stillToCome( k )                                                                          \
   ( running && !outdated && taken[k] != NOTHING && ( k > inHand || ( start != 0 && k < start ) ) )

inline tookOver( somebody ) {
#ifndef LIMIT_SuccessorKnowsTheTree
   sinceStart = false;
#endif
   startsWith( false );
   for ( j : 1 .. SHORT_KEYS ) {
      promised[j] = somebody && live( j ) && ( backlog[j] != NOTHING || stillToCome( j ) )
   }
   handPromised = somebody && told && !outdated && live( inHand )
}

inline stopped() {
#ifndef LIMIT_LongKeysOwedAfterStop
   for ( j : 1 .. SHORT_KEYS ) { longKeyOwed[j] = false }
#endif
   sinceStart = false
}

/* What the run does ----------------------------------------------------------------------------*/

inline appendItemBegins() {
   if
   :: isDeletion( taken[inHand] ) -> printf( "   the consumer is told that %d is gone\n", inHand )
   :: encodeLongKey -> printf( "   the consumer is told of %d, with its long key\n", inHand )
   :: else -> printf( "   the consumer is told of %d\n", inHand )
   fi;
   handCurrent = true;
   notForMe = false;
   holds( LongKeyFirst, encodeLongKey || isDeletion( taken[inHand] ) || !longKeyOwed[inHand] )
}

inline appendItemReturns() {
   if
   :: !notForMe ->
      toldSet[inHand] = !isDeletion( taken[inHand] );
      current[inHand] = toldSet[inHand] && handCurrent
   :: else
   fi;
   longKeyOwed[inHand] = longKeyOwed[inHand] && isDeletion( taken[inHand] );
   handCurrent = false;
   handPromised = false;
   notForMe = false
}

/* What is pending again is for whoever watches now. */
inline appendItemThrows() {
   promised[inHand] = promised[inHand] || handPromised;
   handCurrent = false;
   handPromised = false;
   notForMe = false
}

/* Its turn has come, or it is gone. */
inline turnCame( k ) { runsMissed[k] = 0 }

inline leftOver( k ) {
   runsMissed[k] = runsMissed[k] + 1;
   holds( EveryTurnComes, runsMissed[k] <= SHORT_KEYS )
}

/* The invariants -------------------------------------------------------------------------------*/

#define deletionPending( k )                                                                      \
   ( isDeletion( backlog[k] ) || ( stillToCome( k ) && isDeletion( taken[k] ) ) ||                \
     ( inHand == k && !notForMe && isDeletion( taken[k] ) ) )

/* Wherever somebody could look: between two runs, and in a call of the consumer. */
inline check() {
   anythingPending( found );
   holds( Converges, running || !found || scheduled );
   for ( i : 1 .. SHORT_KEYS ) {
      holds( OneRecordPerKey, recordsIn( backlog[i] ) <= 1 && recordsIn( taken[i] ) <= 1 );
      holds( Converges, running || found || !promised[i] || ( toldSet[i] && current[i] ) );
      holds( Converges, !sinceStart || promised[i] == live( i ) );
      holds( NoDeletionLost, !toldSet[i] || promised[i] || deletionPending( i ) )
   }
}
