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

/* The invariants: true once they are broken. */
bool OneRecordPerKey, OneLongKeyPerShortKey, NoDeletionLost, Converges, LongKeyFirst,
   EveryTurnComes;
#define holds( invariant, condition ) invariant = invariant || !( condition )

/* Scratch paper within one step. (A step, d_step, must not end with a loop: hence the skips.) */
hidden byte i, j, currentKey;
hidden byte found;

byte class; /* The one that an event is about. */

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
   if
   :: select( class : 0 .. LONG_KEYS - 1 );
      if
      :: d_step {
            !hasCounters[class] && nextKey < SHORT_KEYS ->
            printf( "class %d appears\n", class );
            hasCounters[class] = true;
            event()
         }
      :: d_step {
            hasCounters[class] ->
            printf( "class %d goes\n", class );
            hasCounters[class] = false;
            event()
         }
      :: d_step {
            hasCounters[class] && streaming ->
            printf( "the counters of class %d change\n", class );
            event()
         }
      :: else
      fi;
      class = 0
   :: d_step { printf( "startWatching\n" ); startWatching( true ); skip }
   :: d_step { printf( "startWatching, without a frontend\n" ); startWatching( false ); skip }
   :: d_step { printf( "stopWatching\n" ); stopWatching(); skip }
   fi
}

/* shouldYield is asked, and may say so, when one entry has been processed. */
#ifdef MISTAKE_YieldsAtOnce
#define mayYield true
#else
#define mayYield processed
#endif

/* The run goes on: until the consumer is called, or it is over. */
inline goOn() {
   do
   :: inHand == 0 && start != 0 -> d_step { wrapRound(); skip }
   :: inHand == 0 && start == 0 ->
      d_step { printf( "the run is complete\n" ); passEnds(); runEnds(); skip }; break
   :: inHand != 0 && mayYield ->
      d_step { printf( "the run yields\n" ); stopBefore(); runEnds(); skip }; break
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
   :: else -> d_step { printf( "a run begins\n" ); runBegins(); skip }; goOn()
   fi
}

inline appendItemReturned() {
   d_step { printf( "   and returns\n" ); appendItemReturns(); skip };
   if
   :: outdated -> d_step { printf( "the run is outdated\n" ); stopOutdated(); runEnds(); skip }
   :: else -> d_step { advance(); skip }; goOn()
   fi
}

inline appendItemThrew() {
   d_step {
      printf( "   and throws, which ends the run\n" );
      appendItemThrows();
      if
      :: outdated -> stopOutdated()
      :: else -> stopBehind()
      fi;
      runEnds();
      skip
   }
}

/* What is broken is told by its name, all of it, and what would come after is not looked at. */
inline verdict() {
   d_step { check(); skip };
   if
   :: OneRecordPerKey || OneLongKeyPerShortKey || NoDeletionLost || Converges || LongKeyFirst ||
      EveryTurnComes ->
      assert( !OneRecordPerKey );
      assert( !OneLongKeyPerShortKey );
      assert( !NoDeletionLost );
      assert( !Converges );
      assert( !LongKeyFirst );
      assert( !EveryTurnComes );
      goto broken
   :: else
   fi
}

active proctype stream() {
   do
   :: atomic { deed(); verdict() }
   :: atomic { scheduled && !running -> process(); verdict() }
   :: atomic { told -> appendItemReturned(); verdict() }
   :: atomic { told -> appendItemThrew(); verdict() }
   od;
broken:
}
