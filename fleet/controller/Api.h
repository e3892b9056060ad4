// The routes of the owner's API: which request asks for what. JSON, but for the stream, the metrics and the page.
//
//    GET  /v1/fleet, /v1/boxes, /v1/boxes/{box}, /v1/plans, /v1/plans/{plan}, /v1/stream
//         /v1/history?box=BOX&unit=UNIT&plan=PLAN&since=TIME&before=NUMBER&most=NUMBER
//         /v1/can-stop?box=BOX&unit=UNIT      or unit=BOX/UNIT; each as often as needed
//    GET  /metrics, and the page at /
//    POST /v1/plans?box=BOX&label=LABEL:VALUE&unit=UNIT&waves=1,5,10%25&soak=TIME&deadline=TIME&at-deadline=hold
//                  &stay=TIME&dry-run=1
//         /v1/plans/{plan}/pause, .../resume?without=BOX/UNIT, .../cancel
//         /v1/return?unit=BOX/UNIT            or box=BOX: those of its units that are out
//         /v1/brake?site=SITE, /v1/release?site=SITE, /v1/accept
//
// Who changes something over TCP shows an operator's key and is known by its name; on the unix socket the file's mode
// is the leave, and the peer's user name goes on record. An error is { "error": text } with status 400 (malformed), 401
// (no operator's key), 403 (over the network nothing is changed here), 404, 405, 409 (refused, with "why": each reason)
// or 503 (it cannot be kept on disk). Requests come from the HTTP server, one at a time, inside a turn.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "controller/Keys.h"
#include "controller/Query.h"
#include "controller/Views.h"
#include "http/Http.h"
#include "plan/Dispatcher.h"

namespace Fleet {

class Api {
 public:
   struct Parts {
      Dispatcher & dispatcher;
      std::function<double()> now;  // s, Unix time
      std::function<Surroundings()> surroundings;
      std::function<void()> changed = {};  // what was asked for is kept: see what follows from it
      std::function<std::shared_ptr<Host::HttpStream>()> stream = {};
      std::optional<Keys> keys = {};  // without, nothing is changed over TCP
      std::string socket = {};        // that takes changes from whoever may open it
   };

   explicit Api( Parts parts ) : parts_( std::move( parts ) ) {}

   [[nodiscard]] Host::HttpAnswer answer( Host::HttpRequest const & request );
   // Instead of those before.
   void keysIs( std::optional<Keys> keys ) { parts_.keys = std::move( keys ); }

 private:
   // A request on its way through a route.
   struct Asked {
      Parameters const & parameters;
      Host::Target::Path names;  // the components that the route leaves open
      std::string by;            // who asks for a change
   };
   struct Route;

   [[nodiscard]] static std::span<Route const> routes();
   [[nodiscard]] Host::HttpAnswer routed( Host::HttpRequest const & request, Host::Target const & target );
   // Why this one may not change anything, or who he is.
   [[nodiscard]] std::optional<Host::HttpAnswer> turnedAway( Host::HttpRequest const & request,
                                                             std::string & by ) const;
   [[nodiscard]] Host::HttpAnswer carriedOut( Route const & route, Asked const & asked );

   [[nodiscard]] Host::HttpAnswer fleet() const;
   [[nodiscard]] Host::HttpAnswer box( std::string const & name ) const;
   [[nodiscard]] Host::HttpAnswer plan( std::string const & id ) const;
   [[nodiscard]] Host::HttpAnswer history( Asked const & asked ) const;
   [[nodiscard]] Host::HttpAnswer canStop( Asked const & asked ) const;
   [[nodiscard]] Host::HttpAnswer makePlan( Asked const & asked );
   [[nodiscard]] Host::HttpAnswer changePlan( Asked const & asked );
   [[nodiscard]] Host::HttpAnswer bringBack( Asked const & asked );
   [[nodiscard]] Host::HttpAnswer brake( Asked const & asked, bool on );
   [[nodiscard]] Host::HttpAnswer accept( Asked const & asked );

   Parts parts_;
};

}  // namespace Fleet
