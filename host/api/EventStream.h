// GET /v1/events: what happens, a JSON object a line, from a number on or from now on.
//
// Stands on the history of events and knows no more than its place in it. Where the events after its place are
// forgotten before the client has taken them, its last line says so, and where to go on.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "events/EventLog.h"
#include "http/Http.h"
#include "http/HttpStream.h"
#include "http/Target.h"
#include "maintenance/MaintenanceService.h"

namespace Host {

class EventStream final : public HttpStream {
 public:
   using Wanted = std::function<bool( Service::Event const & )>;  // empty: all of them

   EventStream( std::shared_ptr<Service::EventLog> log, uint64_t after, Wanted wanted );

   [[nodiscard]] std::string next( std::size_t bytes ) override;
   [[nodiscard]] bool ended() const override { return ended_; }
   void onMore( std::function<void()> more ) override { more_ = std::move( more ); }
   void stop() override { stopping_ = true; }

 private:
   void handleEvent( Service::Event const & event );
   [[nodiscard]] std::string lastLine( char const * why );

   std::shared_ptr<Service::EventLog> const log_;
   Wanted const wanted_;
   uint64_t at_;           // of the last event that was taken or passed over
   bool waiting_ = false;  // all events are, and the client wants more
   bool stopping_ = false;
   bool ended_ = false;
   std::function<void()> more_;
   Service::EventLog::Listener const listener_;
};

// The answer to it: ?after=NUMBER, by default from now on, and ?unit=UNIT, for those that concern it, also by one of
// its interfaces. 400 for any other parameter, 404 for no such unit, 410 where the history does not reach back as far.
[[nodiscard]] HttpAnswer eventsAnswer( Service::MaintenanceService const & service,
                                       Target::Parameters const & parameters );

}  // namespace Host
