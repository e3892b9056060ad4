// The routes of maintd's API: which request asks for what.
//
//    GET  /v1/units, /v1/units/{unit}, /v1/interfaces, /v1/state/{path}
//    POST /v1/units/{unit}/enter, /v1/units/{unit}/exit
//
// Answers are JSON; an error is { "error": text } with status 400 (malformed), 404 (no such thing), 405 (wrong method) or
// 409 (refused). Requests come from the HTTP server, one at a time, inside a turn.
#pragma once

#include <string>
#include <vector>

#include "api/HttpServer.h"
#include "dovra/EntityManager.h"
#include "service/UnitService.h"
#include "service/UnitView.h"

namespace Host {

class Api {
 public:
   Api( Dovra::EntityManager const & database, UnitService & units, UnitView const & view )
      : database_( database ), units_( units ), view_( view ) {}

   [[nodiscard]] HttpAnswer answer( HttpRequest const & request );

 private:
   [[nodiscard]] HttpAnswer unit( std::string const & name ) const;
   [[nodiscard]] HttpAnswer operate( std::string const & unit, UnitService::Answer const & answer ) const;
   [[nodiscard]] HttpAnswer state( std::vector<std::string> const & path ) const;
   [[nodiscard]] HttpAnswer noUnit( std::string const & name ) const;

   Dovra::EntityManager const & database_;
   UnitService & units_;
   UnitView const & view_;
};

}  // namespace Host
