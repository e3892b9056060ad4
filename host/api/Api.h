// The routes of maintd's API: which request asks for what.
//
//    GET  /v1/units, /v1/units/{unit}, /v1/units/{unit}/ready, /v1/interfaces, /v1/interfaces/{interface},
//         /v1/windows, /v1/windows/{unit}, /v1/windows/{unit}/{generation}, .../last,
//         /v1/state/{path}, /v1/watch, /v1/watch/{path}?after=NUMBER, /v1/events?after=NUMBER&unit=UNIT,
//         /v1/record?for=SECONDS, /v1/trace/levels, /v1/dump
//    GET  /metrics, in the text format of those who scrape
//    POST /v1/units/{unit}/enter?without=NAME&without=NAME&dry-run=1&yes=1&session=ADDRESS, /v1/units/{unit}/exit,
//         /v1/reload, /v1/trace/levels?levels=1,2,4
//
// Answers are JSON as declared in service/views, the dump is text; an error is { "error": text } with status 400
// (malformed), 404 (no such thing), 405 (the other method), 409 (refused, with "why": each reason), 410 (not kept any
// more), 414 (a path too deep), 500 (in force, but not on disk) or 503 (nothing can be kept on disk, or no dump be
// made). A dry run changes nothing; where the request would be carried out its "result" is "wouldStart". Where there is
// cause to ask back before a unit enters, "yes=1" says that it is meant all the same; "session" is the address that the
// caller himself is connected from. docs/api/openapi.yaml says all of it for clients. Requests come from the HTTP
// server, one at a time, inside a turn.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "dovra/EntityManager.h"
#include "http/Http.h"
#include "http/Target.h"
#include "maintenance/MaintenanceService.h"
#include "plugin/PluginContext.h"
#include "streams/ChangeHistory.h"
#include "views/WindowView.h"

namespace Host {

class Api {
 public:
   // Reads the configuration again; what stood in the way, each reason, nothing when it is in force.
   using Reload = std::function<std::vector<std::string>( std::string const & requestedBy )>;

   // Why it should be asked back before the unit enters, a sentence each that says how to go on.
   using Guard = std::function<std::vector<std::string>(
      std::string const & unit, std::vector<std::string> const & without, std::string const & session )>;
   // Why what changes is not kept on disk; empty while it is.
   using StoreTrouble = std::function<std::string()>;

   // A recording of the box from now on, for so many seconds or without end.
   using Record = std::function<std::shared_ptr<HttpStream>( std::optional<double> seconds )>;

   // All outlive this. Where there is no guard or no store, nothing is asked; where nobody records, nothing is
   // recorded.
   Api( Dovra::EntityManager & database, Service::MaintenanceService & service,
        Maintenance::PluginContext const & plugin, Reload reload, Guard guard = {}, StoreTrouble storeTrouble = {},
        Record record = {} )
      : database_( database ),
        service_( service ),
        plugin_( plugin ),
        reload_( std::move( reload ) ),
        guard_( std::move( guard ) ),
        storeTrouble_( std::move( storeTrouble ) ),
        record_( std::move( record ) ),
        windows_( service.ledger().windows() ),
        changes_( database ) {}

   [[nodiscard]] HttpAnswer answer( HttpRequest const & request );
   // What answers GET /metrics; without it there is nothing there.
   void metricsIs( std::function<HttpAnswer()> metrics ) { metrics_ = std::move( metrics ); }
   // Every route: "GET /v1/units/*", for whoever describes them.
   [[nodiscard]] static std::vector<std::string> routeTexts();

 private:
   // A request on its way through a route.
   struct Asked {
      HttpRequest const & request;
      Target::Parameters const & parameters;
      Target::Path names;  // the components that the route leaves open, in their order
   };
   struct Route;

   [[nodiscard]] static std::span<Route const> routes();        // below /v1
   [[nodiscard]] static std::span<Route const> routesBeside();  // all others
   [[nodiscard]] HttpAnswer interface( std::string const & name ) const;
   [[nodiscard]] HttpAnswer windowsOf( std::string const & unit ) const;
   [[nodiscard]] HttpAnswer window( std::string const & unit, std::string const & generation ) const;
   [[nodiscard]] HttpAnswer state( Target::Path const & path ) const;
   [[nodiscard]] HttpAnswer dump() const;
   [[nodiscard]] HttpAnswer record( Asked const & asked ) const;
   [[nodiscard]] HttpAnswer enter( Asked const & asked );
   [[nodiscard]] HttpAnswer exit( Asked const & asked );
   [[nodiscard]] HttpAnswer reload( std::string const & user );
   [[nodiscard]] static HttpAnswer changeLevels( Asked const & asked );
   // The answer of `change`, which must be on disk before it is given.
   template<class Change>
   [[nodiscard]] HttpAnswer kept( Change const & change );
   // The answer about a unit, or that there is none of that name.
   template<class T>
   [[nodiscard]] HttpAnswer ofUnit( std::string const & unit, std::optional<T> const & answer ) const;
   [[nodiscard]] HttpAnswer noUnit( std::string const & name ) const;

   Dovra::EntityManager const & database_;
   Service::MaintenanceService & service_;
   Maintenance::PluginContext const & plugin_;
   Reload const reload_;
   Guard const guard_;
   StoreTrouble const storeTrouble_;
   Record const record_;
   std::function<HttpAnswer()> metrics_;
   Service::WindowView const windows_;
   ChangeHistory changes_;
};

}  // namespace Host
