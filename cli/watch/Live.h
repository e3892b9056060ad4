// The live view on a terminal, from its first picture to its last: asks, waits for answers, keys and signals, paints.
//
// Never waits for maintd: whatever becomes of that, keys are answered at once.
#pragma once

#include "tables/Members.h"
#include "watch/Frame.h"

namespace Cli::Watch {

struct Question {
   enum class What : uint8_t {
      state,    // of the units that are watched
      recent,   // the last minutes of a window, of all interfaces
      history,  // a window of one interface
   };
   What what = What::state;
   std::string unit;  // its key; of What::state not looked at
   std::string intf;
};

struct News {
   Question question;
   std::string trouble;  // why there is no answer, a sentence; empty: there is one
   Object answer;
};

// Answers questions in their order, while somebody else goes on.
class Source {
 public:
   virtual ~Source() = default;
   virtual void ask( Question const & question ) = 0;
   // Becomes readable when there may be news.
   [[nodiscard]] virtual int fd() const = 0;
   [[nodiscard]] virtual std::optional<News> next() = 0;
};

struct LiveAsked {
   std::string unit;  // empty: all
   double intervalSeconds = 1;
   std::optional<uint32_t> pictures;  // then end; none: until somebody leaves
   Look look;
};

struct Ending {
   bool unusable = false;  // the terminal could not be used at all
   int signal = 0;         // that ended it; 0: none did
   Frame last;
};

// `first` is the answer to a question about the state, so that there is something to be seen at once.
[[nodiscard]] Ending live( LiveAsked const & asked, Object const & first, Source & source );

// How long ago is told by the caller's clock, as "14:05:09" and "2026-03-01 14:05:09".
[[nodiscard]] std::string timeOfDay();
[[nodiscard]] std::string dateAndTime();

}  // namespace Cli::Watch
