// The end of a turn: judgements over all that the turn has changed, made once however much it was.
//
// Whoever derives from this asks with due(), from inside a turn or between two, and is called in the last phase of the
// turn, after timers and deferred work. Those that asked are called in the order of their ranks, lowest first; when one
// of them causes another to ask again, the walk goes back to the lowest. So what a lower rank settles is settled before
// a higher one looks, and the turn ends when nobody asks any more. Time does not move meanwhile.
#pragma once

namespace Kel {

class ActivityLoop;

class TurnEnd {
 public:
   // Ranks are the loop's own business to order: no two that exist at the same time have the same one.
   explicit TurnEnd( int rank );
   TurnEnd( TurnEnd const & ) = delete;
   TurnEnd & operator=( TurnEnd const & ) = delete;
   virtual ~TurnEnd();

   void due() { due_ = true; }

   virtual void onTurnEnd() = 0;

 private:
   friend class ActivityLoop;

   ActivityLoop & loop_;
   int const rank_;
   bool due_ = false;
};

}  // namespace Kel
