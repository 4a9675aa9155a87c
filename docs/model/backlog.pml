/* PbrCountersBacklog: what is pending, and the run that drains it.

   What is filed under a short key is a number that says how many records there are, so that a
   second one would be seen: an update counts one, a deletion four. */

#define NOTHING  0
#define UPDATE   1
#define DELETION 4
#define recordsIn( entry )  ( ( entry & 3 ) + ( entry >> 2 ) )
#define isDeletion( entry ) ( entry >= DELETION )

byte backlog[SHORT_KEYS + 1];
byte bookmark;                 /* 0: none */
bool frontend;                 /* Somebody watches, or watched last. */
bool scheduled;                /* The task is to run. */

/* A run in progress. */
bool running;
byte taken[SHORT_KEYS + 1];    /* W: what was processed leaves it when a pass stops or ends. */
byte start;                    /* Where this pass began; 0: at the first entry. */
byte inHand;                   /* The entry that the run stands at; 0: behind the last one. */
bool processed;                /* At least one. */
bool encodeLongKey;            /* Of the record in hand. */
bool told;                     /* The consumer is to be told of the record in hand. */
bool outdated;                 /* Everything was filed anew meanwhile. */

/* Filing publishes only when the stored record changes, and what is published schedules the
   task. */
inline backlogIs( k, record ) {
   if
#ifdef MISTAKE_TakenCountsAsPending
   :: backlog[k] == NOTHING && taken[k] == record
#endif
   :: backlog[k] != record -> backlog[k] = record; scheduled = true
   :: else
   fi
}

inline backlogDel( k ) {
   if
   :: backlog[k] != NOTHING -> backlog[k] = NOTHING; turnCame( k ); scheduled = true
   :: else
   fi
}

inline backlogDelAll() {
   for ( j : 1 .. SHORT_KEYS ) { backlog[j] = NOTHING; turnCame( j ) }
}

inline anythingPending( answer ) {
   answer = false;
   for ( j : 1 .. SHORT_KEYS ) { answer = answer || backlog[j] != NOTHING }
}

/* Takes everything and leaves an empty backlog. */
inline moveOut() {
   for ( j : 1 .. SHORT_KEYS ) { taken[j] = backlog[j]; backlog[j] = NOTHING }
}

/* What arrived wins. */
inline mergeBack() {
   for ( j : 1 .. SHORT_KEYS ) {
      if
#ifdef MISTAKE_MergedBeside
      :: recordsIn( taken[j] ) == 1 && recordsIn( backlog[j] ) == 1 ->
         backlog[j] = backlog[j] + taken[j]
#endif
#ifdef MISTAKE_LeftoverWins
      :: taken[j] != NOTHING -> backlog[j] = taken[j]
#endif
      :: taken[j] != NOTHING && backlog[j] == NOTHING -> backlog[j] = taken[j]
      :: else
      fi;
      if
      :: taken[j] != NOTHING -> leftOver( j )
      :: else
      fi;
      taken[j] = NOTHING
   }
}

/* The first entry of W from k on, in the order of the keys; 0 if there is none. */
inline entryFrom( k, answer ) {
   j = k;
   do
   :: j <= SHORT_KEYS && taken[j] == NOTHING -> j = j + 1
   :: else -> break
   od;
   answer = ( j <= SHORT_KEYS -> j : 0 )
}

/* The entries from k on, up to but not including end. */
inline takenDel( k, end ) {
   j = k;
   do
   :: j < end -> taken[j] = NOTHING; j = j + 1
   :: else -> break
   od
}

#define passBegin ( start + ( start == 0 ) )

/* Forgets what this pass has processed before the entry in hand. */
inline processedDel() { takenDel( passBegin, inHand ) }

/* Takes what is pending and stands at the first entry to be processed. */
inline runBegins() {
   scheduled = false;
   moveOut();
   running = true;
   start = bookmark;
   entryFrom( passBegin, inHand )
}

/* Behind the last entry. */
inline passEnds() { takenDel( passBegin, SHORT_KEYS + 1 ) }

/* A pass that began at the bookmark goes on with those before it. */
inline wrapRound() {
   passEnds();
   bookmark = 0; start = 0;
   entryFrom( 1, inHand )
}

/* Nobody was told: the short key is novel again, unless everything was filed anew. */
inline notTold() {
   if
#ifndef MISTAKE_NoveltyNotPutBack
   :: encodeLongKey && !outdated -> novelKey[inHand] = true
#endif
   :: else
   fi
}

/* Up to the call of the consumer, if there is to be one: not for the deletion of a key that it
   never learnt, and not if the consumer was taken away during the run. */
inline processItem() {
   turnCame( inHand );
   isNovelKey( inHand, encodeLongKey );
   if
   :: encodeLongKey && isDeletion( taken[inHand] ) -> told = false
   :: else ->
      told = frontend;
      if
      :: !told -> notTold()
      :: else
      fi
   fi
}

/* It has been processed: on to the next. */
inline advance() {
   processed = true;
   encodeLongKey = false;
   told = false;
   entryFrom( inHand + 1, inHand )
}

/* Told to yield: the next run begins at the entry in hand. */
inline stopBefore() {
   processedDel();
#ifdef MISTAKE_NoBookmark
   bookmark = 0
#else
   bookmark = inHand
#endif
}

/* The consumer threw: the entry in hand stays, and the next run begins behind it. */
inline stopBehind() {
   notTold();
   processedDel();
   entryFrom( inHand + 1, bookmark )
}

/* Everything was filed anew: nothing of what was taken is worth keeping. */
inline stopOutdated() {
   takenDel( 1, SHORT_KEYS + 1 );
   for ( j : 1 .. SHORT_KEYS ) { turnCame( j ) }
}

inline runEnds() {
   mergeBack();
   running = false;
   start = 0; inHand = 0; processed = false; encodeLongKey = false; told = false;
   outdated = false;
   anythingPending( found );
   scheduled = scheduled || found
}
