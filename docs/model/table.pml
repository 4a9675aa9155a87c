/* The tree, the key compression table, and the rules that keep the table in step.

   The tree is its classes: class l has counters or it has not. A long key is the class's number. Of
   the counters only their change matters, of the policy maps nothing does: one that goes is its
   classes going one after the other. */

bool hasCounters[LONG_KEYS];

/* PbrCountersKeyCompressionTable. Short key 0 is none. */
byte shortKey[LONG_KEYS];
byte nextKey;
bool novelKey[SHORT_KEYS + 1];

inline shortKeyAllocated( l ) {
   nextKey = nextKey + 1;
   shortKey[l] = nextKey;
   printf( "   it gets short key %d\n", nextKey );
   handedOut( nextKey, l )
}

inline shortKeyDel( l ) {
#ifdef MISTAKE_ShortKeyUsedAgain
   if
   :: shortKey[l] == nextKey -> nextKey = nextKey - 1
   :: else
   fi;
#endif
   shortKey[l] = 0
}

/* Asking consumes the entry. */
inline isNovelKey( k, answer ) {
   answer = novelKey[k];
#ifndef MISTAKE_NoveltyNotConsumed
   novelKey[k] = false
#endif
}

inline clearNovelKeys() {
   for ( j : 1 .. SHORT_KEYS ) { novelKey[j] = false }
}

/* The rules of CompressedKeyTableSm: an event of class l while idle. */
inline idleEventToInput( l ) {
   if
   :: hasCounters[l] && shortKey[l] == 0 -> shortKeyAllocated( l )
   :: !hasCounters[l] && shortKey[l] != 0 -> goneWhileIdle( shortKey[l] ); shortKeyDel( l )
   :: else
   fi
}

/* The rules of PbrCountersBacklogSm: an event of class l while streaming. */
inline eventToInput( l ) {
   if
   :: hasCounters[l] ->
      if
      :: shortKey[l] == 0 -> /* pipeline 3 */
         shortKeyAllocated( l );
         shortKeysNovelKeyOutputSeen[shortKey[l]] = true;
         novelKey[shortKey[l]] = true;
         appeared( shortKey[l] )
      :: else                /* pipeline 4 */
      fi;
      changed( shortKey[l] );
      writeBacklog( shortKey[l], UPDATE )
   :: else ->                /* pipeline 1 */
      currentKey = shortKey[l];
      shortKeyDel( l );
      gone( currentKey );
#ifdef MISTAKE_DeletionWithdraws
      if
      :: backlog[currentKey] != NOTHING -> backlogDel( currentKey )
      :: else -> writeBacklog( currentKey, DELETION )
      fi
#else
      writeBacklog( currentKey, DELETION )
#endif
   fi
}

/* Pipeline 2. */
inline writeBacklog( k, record ) {
   backlogBacklogOutputSeen[k] = true;
   backlogIs( k, record )
}
