// The routes of maintd's API: which request asks for what.
//
//    GET  /v1/units, /v1/units/{unit}, /v1/interfaces, /v1/state/{path}, /v1/trace/levels, /v1/dump
//    POST /v1/units/{unit}/enter, /v1/units/{unit}/exit, /v1/trace/levels?levels=1,2,4
//
// Answers are JSON, the dump is text; an error is { "error": text } with status 400 (malformed), 404 (no such thing),
// 405 (wrong method) or 409 (refused). Requests come from the HTTP server, one at a time, inside a turn.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "api/HttpServer.h"
#include "dovra/EntityManager.h"
#include "plugin/PluginContext.h"
#include "units/UnitService.h"
#include "views/UnitView.h"

namespace Host {

class Api {
 public:
   Api( Dovra::EntityManager const & database, Service::UnitService & units, Service::UnitView const & view,
        Maintenance::PluginContext const & plugin )
      : database_( database ), units_( units ), view_( view ), plugin_( plugin ) {}

   [[nodiscard]] HttpAnswer answer( HttpRequest const & request );

 private:
   using Path = std::vector<std::string>;  // decoded components

   // The answer to a GET and to a POST, none where the route leads nowhere.
   [[nodiscard]] std::optional<HttpAnswer> shown( Path const & route ) const;
   [[nodiscard]] std::optional<HttpAnswer> done( Path const & route, std::string_view target );
   [[nodiscard]] HttpAnswer unit( std::string const & name ) const;
   [[nodiscard]] HttpAnswer operate( std::string const & unit, Service::UnitService::Answer const & answer ) const;
   [[nodiscard]] HttpAnswer state( Path const & path ) const;
   [[nodiscard]] static HttpAnswer changeLevels( std::string_view target );
   [[nodiscard]] HttpAnswer noUnit( std::string const & name ) const;

   Dovra::EntityManager const & database_;
   Service::UnitService & units_;
   Service::UnitView const & view_;
   Maintenance::PluginContext const & plugin_;
};

}  // namespace Host
