/* PbrPolicyCountersMgr: which machine runs, and what each leaves to the other. The machines are
   synchronous, as the manager makes them, so a switch is one step. */

bool streaming;

/* What the scan of a new PbrCountersBacklogSm has written. Read by its reconciliation only. */
hidden byte backlogBacklogOutputSeen[SHORT_KEYS + 1];
hidden byte shortKeysNovelKeyOutputSeen[SHORT_KEYS + 1];

inline seenDelAll() {
   for ( j : 1 .. SHORT_KEYS ) {
      backlogBacklogOutputSeen[j] = false;
      shortKeysNovelKeyOutputSeen[j] = false
   }
}

/* What the scan did not write again goes: records of a previous life, and old novelty. */
inline reconcile() {
   for ( i : 1 .. SHORT_KEYS ) {
      if
#ifndef MISTAKE_NotReconciled
      :: !backlogBacklogOutputSeen[i] -> backlogDel( i )
#endif
      :: else
      fi;
      novelKey[i] = novelKey[i] && shortKeysNovelKeyOutputSeen[i]
   }
}

inline beginStreaming() {
#ifndef MISTAKE_NotOutdated
   outdated = running; /* allFiledAnew */
#endif
   streaming = true;
   seenDelAll();
   for ( i : 0 .. LONG_KEYS - 1 ) {
      if
      :: hasCounters[i] -> eventToInput( i )
      :: else
      fi
   }
   reconcile()
}

/* The frontend stays, and so does what is pending. */
inline beginIdling() {
   streaming = false;
   for ( i : 0 .. LONG_KEYS - 1 ) { idleEventToInput( i ) }
   clearNovelKeys()
}

/* The frontend is another one from here on, or the same that starts from nothing, or null. */
inline startWatching( somebody ) {
   if
   :: !streaming -> beginStreaming(); startedAnew( somebody )
   :: else -> tookOver( somebody )
   fi;
   frontend = somebody
}

inline stopWatching() {
   if
   :: streaming -> beginIdling(); stopped()
   :: else
   fi
}
