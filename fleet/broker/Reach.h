// Whether a broker answers at an address, found out without waiting.
//
// libnats connects in the thread of whoever asks it to, who stands still for as long as nobody answers. So after one
// attempt in vain this is asked first: it connects on its own, and the broker is there when it has said its first word,
// which it does before TLS. Looked at now and then; begins anew by itself. Not for each attempt: to the broker it is
// somebody who has gone before TLS, and that stands in its log.
#pragma once

#include <chrono>
#include <vector>

#include "broker/Address.h"

namespace Fleet {

class Reach {
 public:
   explicit Reach( Address address ) : address_( std::move( address ) ) {}
   ~Reach() { giveUp(); }
   Reach( Reach const & ) = delete;
   Reach & operator=( Reach const & ) = delete;

   // True once each time that the broker was found there.
   [[nodiscard]] bool answered();

   // An attempt; a broker that wants longer for its first word is as good as none.
   static constexpr std::chrono::seconds patience{ 5 };
   // A name may take long to look up where no name server answers, and that does wait.
   static constexpr std::chrono::seconds nameHolds{ 60 };

 private:
   using Clock = std::chrono::steady_clock;
   struct Place {
      int family = 0;
      std::vector<unsigned char> address;  // as connect(2) takes it
   };

   void lookUp();
   void begin();
   void giveUp();

   Address const address_;
   std::vector<Place> places_;
   Clock::time_point lookedUp_;
   Clock::time_point begun_;
   std::vector<int> sockets_;  // one for each place that was not refused at once
};

}  // namespace Fleet
