#include "watch/Live.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>

#include "watch/Screen.h"
#include "watch/Signals.h"
#include "watch/View.h"

namespace Cli::Watch {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// An answer takes milliseconds. Whoever watches is told when one is late by this.
constexpr Seconds patience( 3 );
// Of a history that is open; a window is large, and changes slowly where a column is seconds.
constexpr Seconds historyInterval( 5 );
// A window above this is only read when somebody asks for it: maintd does nothing else meanwhile.
constexpr double largeWindow = 100e3;  // cells

std::string nowAs( char const * format ) {
   std::time_t const now = std::time( nullptr );
   std::tm parts{};
   ::localtime_r( &now, &parts );
   std::array<char, 64> text{};
   std::strftime( text.data(), text.size(), format, &parts );
   return text.data();
}

Clock::time_point after( Seconds span ) { return Clock::now() + std::chrono::duration_cast<Clock::duration>( span ); }

// An estimate: cells are as long as a sample interval at least, which is a second or more.
bool isLarge( Unit const & unit ) {
   double const age = unit.since ? unit.now - *unit.since : 0;
   return static_cast<double>( unit.intfs.size() ) * std::clamp( age, 0.0, 600.0 ) > largeWindow;
}

class Session {
 public:
   Session( LiveAsked const & asked, Object const & first, Source & source, Screen & screen )
      : asked_( asked ), source_( source ), screen_( screen ), scene_( asked.look ), view_( scene_, asked.look ) {
      answered( first );
      due_ = after( Seconds( asked.intervalSeconds ) );
      for( Unit const & unit : scene_.units() ) {
         if( unit.judged() && !isLarge( unit ) ) source_.ask( { Question::What::recent, unit.key, "" } );
      }
   }

   Ending run() {
      while( true ) {
         ask();
         paint();
         if( ending_.signal != 0 || view_.left() || enough() ) return ending_;
         wait();
         takeSignals();
         while( auto const press = screen_.pressed() ) view_.pressed( *press );
         while( auto const news = source_.next() ) take( *news );
      }
   }

 private:
   [[nodiscard]] bool enough() const { return asked_.pictures && pictures_ >= *asked_.pictures; }

   void answered( Object const & answer ) {
      scene_.answerIs( answer, asked_.intervalSeconds );
      answeredAt_ = Clock::now();
      trouble_.clear();
      fresh_ = true;
   }

   void ask() {
      auto const now = Clock::now();
      if( !underway_ && now >= due_ ) {
         underway_ = true;
         // Periodic work does not catch up.
         due_ = after( Seconds( asked_.intervalSeconds ) );
         source_.ask( {} );
      }
      auto const history = view_.historyOf();
      bool const other = history != history_;
      history_ = history;
      if( !history || historyUnderway_ || ( !other && now < historyDue_ ) ) return;
      historyUnderway_ = true;
      source_.ask( { Question::What::history, history->first, history->second } );
   }

   void take( News const & news ) {
      switch( news.question.what ) {
         case Question::What::state: takeState( news ); break;
         case Question::What::recent:
            // Spark lines can do without.
            if( news.trouble.empty() ) scene_.windowIs( news.question.unit, news.answer );
            break;
         case Question::What::history: takeHistory( news ); break;
      }
   }

   void takeState( News const & news ) {
      underway_ = false;
      if( news.trouble.empty() ) return answered( news.answer );
      trouble_ = news.trouble;
   }

   void takeHistory( News const & news ) {
      historyUnderway_ = false;
      historyDue_ = after( historyInterval );
      auto const open = view_.historyOf();
      if( !open || *open != ListView::Place( news.question.unit, news.question.intf ) ) {
         // Another has been opened meanwhile.
         historyDue_ = Clock::now();
         return;
      }
      for( Unit const & unit : scene_.units() ) {
         if( unit.key == open->first && isLarge( unit ) ) historyDue_ = Clock::time_point::max();
      }
      if( news.trouble.empty() ) {
         view_.windowIs( news.answer );
      } else {
         view_.noWindowIs( news.trouble );
      }
   }

   void paint() {
      double const silent = Seconds( Clock::now() - answeredAt_ ).count();
      std::string trouble = trouble_;
      bool const late = silent > asked_.intervalSeconds + patience.count();
      if( trouble.empty() && late ) trouble = "maintd does not answer";
      if( !trouble.empty() ) trouble += "; below is what it said last";
      ending_.last =
         view_.frame( screen_.size(), { asked_.unit, timeOfDay(), asked_.intervalSeconds, trouble, silent } );
      screen_.paint( ending_.last );
      if( fresh_ ) ++pictures_;
      fresh_ = false;
   }

   // Until something has come, the next question is due, or the time of day has changed.
   void wait() {
      auto const now = Clock::now();
      auto const until = std::min( underway_ ? Clock::time_point::max() : due_, now + std::chrono::seconds( 1 ) );
      auto const ms = std::chrono::ceil<std::chrono::milliseconds>( std::max( until - now, Clock::duration( 0 ) ) );
      std::array<pollfd, 3> watched{ pollfd{ STDIN_FILENO, POLLIN, 0 }, pollfd{ signals_.fd(), POLLIN, 0 },
                                     pollfd{ source_.fd(), POLLIN, 0 } };
      ::poll( watched.data(), watched.size(), static_cast<int>( ms.count() ) );
      // The terminal has gone, and nobody sends a signal where it was not that of this session.
      if( watched[0].revents & ( POLLHUP | POLLERR | POLLNVAL ) ) ending_.signal = SIGHUP;
   }

   void takeSignals() {
      for( int signal = signals_.next(); signal != 0; signal = signals_.next() ) {
         if( signal == SIGWINCH ) {
            screen_.resized();
         } else {
            ending_.signal = signal;
         }
      }
   }

   LiveAsked const & asked_;
   Source & source_;
   Screen & screen_;
   Signals const signals_;
   Scene scene_;
   View view_;
   Ending ending_;
   std::string trouble_;
   Clock::time_point answeredAt_;
   Clock::time_point due_;
   bool underway_ = false;
   std::optional<ListView::Place> history_;
   Clock::time_point historyDue_;
   bool historyUnderway_ = false;
   bool fresh_ = false;  // there is an answer that has not been painted
   uint32_t pictures_ = 0;
};

}  // namespace

Ending live( LiveAsked const & asked, Object const & first, Source & source ) {
   Screen screen;
   if( !screen.usable() ) return { .unusable = true, .last = {} };
   return Session( asked, first, source, screen ).run();
}

std::string timeOfDay() { return nowAs( "%H:%M:%S" ); }
std::string dateAndTime() { return nowAs( "%Y-%m-%d %H:%M:%S" ); }

}  // namespace Cli::Watch
