// The link monitor at work: what it reports goes to the feed, and trouble is told and waited out.
//
// Owned by the box's service, which starts the monitor and has its descriptor watched. The pause after trouble is a
// timer of the activity loop, which must exist.
#pragma once

#include "feed/LinkFeed.h"
#include "kel/Clock.h"
#include "linux/LinkMonitor.h"

namespace Host {

class LinkWatch final : private Linux::TroubleListener {
 public:
   // The feed outlives this. Throws Linux::NetlinkError.
   LinkWatch( LinkFeed & feed, Tell tell );

   [[nodiscard]] Linux::LinkMonitor & monitor() { return monitor_; }

 private:
   class Pause final : public Kel::Clock::NotifieeConst {
    public:
      explicit Pause( LinkWatch & owner );
      void onTimeMin() override { owner_.monitor_.resume(); }

    private:
      LinkWatch & owner_;
   };

   void onTrouble( std::string const & text, double pauseSeconds ) override;
   void onRecovered() override;

   Tell const tell_;
   Linux::LinkMonitor monitor_;
   Pause pause_;
};

}  // namespace Host
