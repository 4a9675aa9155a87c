/* How the PBR counters stream delivers: README.md says what this covers and what it does not.

   One process, because the system has one thread. What others do - the tree changes, somebody
   starts or stops watching - may happen between two runs of the task and inside every call of the
   consumer, which is where it may re-enter. All executions are looked at, however long, in which no
   more than SHORT_KEYS short keys are handed out. */

#ifndef LONG_KEYS
#define LONG_KEYS 2
#endif
#ifndef SHORT_KEYS
#define SHORT_KEYS 3
#endif

/* The names of the invariants: all false, for ever, so that what fails tells its name. */
hidden byte OneRecordPerKey, OneLongKeyPerShortKey, NoDeletionLost, Converges, LongKeyFirst,
   LongKeyOnce;

/* Scratch paper within one step. */
hidden byte i, j, currentKey;
hidden byte found;

byte class;

#include "backlog.pml"
#include "table.pml"
#include "mgr.pml"
#include "consumer.pml"

inline event() {
   if
   :: streaming -> eventToInput( class )
   :: else -> idleEventToInput( class )
   fi
}

/* Somebody does something. */
inline deed() {
   atomic {
      if
      :: select( class : 0 .. LONG_KEYS - 1 );
         if
         :: d_step { !hasCounters[class] && nextKey < SHORT_KEYS ->
                     hasCounters[class] = true; event() }
         :: d_step { hasCounters[class] -> hasCounters[class] = false; event() }
         :: d_step { hasCounters[class] && streaming -> event() } /* Its counters change. */
         :: else
         fi
      :: d_step { startWatching( true ); skip }
      :: d_step { startWatching( false ); skip } /* Without a frontend. */
      :: d_step { stopWatching(); skip }
      fi;
      d_step { check(); class = 0 }
   }
}

/* The run goes on: until the consumer is called, or it is over. */
inline goOn() {
   do
   :: inHand == 0 && start != 0 -> d_step { wrapRound(); skip }
   :: inHand == 0 && start == 0 -> d_step { passEnds(); runEnds(); skip }; break
   :: inHand != 0 && processed -> d_step { stopBefore(); runEnds(); skip }; break /* It yields. */
   :: inHand != 0 ->
      d_step { processItem(); skip };
      if
      :: told -> d_step { appendItemBegins(); skip }; break
      :: else -> d_step { advance(); skip }
      fi
   od
}

inline process() {
   if
   :: !frontend -> d_step { scheduled = false; backlogDelAll(); skip }
   :: else -> d_step { runBegins(); skip }; goOn()
   fi
}

inline appendItemReturned() {
   d_step { appendItemReturns(); skip };
   if
   :: outdated -> d_step { stopOutdated(); runEnds(); skip }
   :: else -> d_step { advance(); skip }; goOn()
   fi
}

inline appendItemThrew() {
   d_step {
      appendItemThrows();
      if
      :: outdated -> stopOutdated()
      :: else -> stopBehind()
      fi;
      runEnds();
      skip
   }
}

active proctype stream() {
   do
   :: deed()
   :: atomic { scheduled && !running -> process(); d_step { check(); skip } }
   :: atomic { told -> appendItemReturned(); d_step { check(); skip } }
   :: atomic { told -> appendItemThrew(); d_step { check(); skip } }
   od
}
