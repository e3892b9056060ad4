// One recording on its way to the client who asked for it: first how everything was when it began, then each turn.
//
// Owned by the connection that sends it. It holds what its client has not taken yet of the beginning, and beyond that
// only its place in the journal. Its clock is that of the replay: each step of time is written as what the replay's own
// sum of steps still lacks, so that a day of them ends where it should.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "http/HttpStream.h"
#include "record/Journal.h"

namespace Host {

class Recording final : public HttpStream {
 public:
   // It ends by itself when a turn comes that is at or after `end`, if there is one.
   Recording( std::shared_ptr<Journal> journal, std::optional<double> end );
   ~Recording() override;

   // How everything is, in lines; the clock of the replay stands at `clock` then. What comes is what the journal gets
   // from now on.
   void beginIs( std::deque<std::string> lines, double clock );
   [[nodiscard]] bool begun() const { return begun_; }

   [[nodiscard]] std::string next( std::size_t bytes ) override;
   [[nodiscard]] bool ended() const override { return over_; }
   void onMore( std::function<void()> more ) override { more_ = std::move( more ); }
   void stop() override { stopped_ = true; }

   // Whether it has to hear of a turn at that time, because it ends there.
   [[nodiscard]] bool endsBy( double time ) const { return end_ && *end_ <= time && !over_; }

 private:
   [[nodiscard]] std::string nextLines();
   [[nodiscard]] std::string textOf( Journal::Turn const & turn );
   [[nodiscard]] std::string stepTo( double time );
   [[nodiscard]] std::string lastLine( std::string const & why );

   std::shared_ptr<Journal> const journal_;
   std::optional<double> const end_;  // s
   Journal::More more_;
   std::deque<std::string> begin_;
   bool begun_ = false;
   bool over_ = false;
   bool stopped_ = false;  // with its agent
   uint64_t place_ = 0;
   double clock_ = 0;  // s
};

}  // namespace Host
