// The routes of maintd's API: which request asks for what.
//
//    GET  /v1/units, /v1/units/{unit}, /v1/units/{unit}/ready, /v1/interfaces, /v1/interfaces/{interface},
//         /v1/windows, /v1/windows/{unit}, /v1/windows/{unit}/{generation}, .../last,
//         /v1/state/{path}, /v1/trace/levels, /v1/dump
//    POST /v1/units/{unit}/enter?without=NAME&without=NAME&dry-run=1, /v1/units/{unit}/exit, /v1/reload,
//         /v1/trace/levels?levels=1,2,4
//
// Answers are JSON as declared in service/views, the dump is text; an error is { "error": text } with status 400
// (malformed), 404 (no such thing), 405 (wrong method) or 409 (refused, with "why": each reason). A dry run changes
// nothing; where the request would be carried out its "result" is "wouldStart". Requests come from the HTTP server, one
// at a time, inside a turn.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "api/HttpServer.h"
#include "dovra/EntityManager.h"
#include "maintenance/MaintenanceService.h"
#include "plugin/PluginContext.h"
#include "views/WindowView.h"

namespace Host {

class Api {
 public:
   // Reads the configuration again; what stood in the way, each reason, nothing when it is in force.
   using Reload = std::function<std::vector<std::string>()>;

   // All outlive this.
   Api( Dovra::EntityManager const & database, Service::MaintenanceService & service,
        Maintenance::PluginContext const & plugin, Reload reload )
      : database_( database ),
        service_( service ),
        plugin_( plugin ),
        reload_( std::move( reload ) ),
        windows_( service.ledger().windows() ) {}

   [[nodiscard]] HttpAnswer answer( HttpRequest const & request );

 private:
   using Path = std::vector<std::string>;  // decoded components

   // The answer to a GET and to a POST, none where the route leads nowhere.
   [[nodiscard]] std::optional<HttpAnswer> shown( Path const & route ) const;
   [[nodiscard]] std::optional<HttpAnswer> done( Path const & route, HttpRequest const & request );
   [[nodiscard]] HttpAnswer interface( std::string const & name ) const;
   [[nodiscard]] HttpAnswer windowsOf( std::string const & unit ) const;
   [[nodiscard]] HttpAnswer window( std::string const & unit, std::string const & generation ) const;
   [[nodiscard]] HttpAnswer enter( std::string const & unit, HttpRequest const & request );
   [[nodiscard]] HttpAnswer exit( std::string const & unit, HttpRequest const & request );
   [[nodiscard]] HttpAnswer reload();
   [[nodiscard]] HttpAnswer state( Path const & path ) const;
   [[nodiscard]] static HttpAnswer changeLevels( std::string_view target );
   // The answer about a unit, or that there is none of that name.
   template<class T>
   [[nodiscard]] HttpAnswer ofUnit( std::string const & unit, std::optional<T> const & answer ) const;
   [[nodiscard]] HttpAnswer noUnit( std::string const & name ) const;

   Dovra::EntityManager const & database_;
   Service::MaintenanceService & service_;
   Maintenance::PluginContext const & plugin_;
   Reload const reload_;
   Service::WindowView const windows_;
};

}  // namespace Host
