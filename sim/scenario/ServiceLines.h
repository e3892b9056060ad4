// The lines of a scenario that speak to the maintenance service, and those that say what it finds on the box:
//
//    config, link             what the operator wrote, what the host reports
//    enter, exit              the operator's requests
//    status, ready            the operator's questions
//
// Owned by the scenario, which parses the lines and prints what these answer. A refusal is an answer; only what no
// operator could have asked for is an error of the line.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "scenario/Json.h"
#include "world/World.h"

namespace Sim {

class ServiceLines {
 public:
   using Print = std::function<void( Kel::Value::Object answer )>;

   // The world outlives this. Hooks that it runs are printed.
   ServiceLines( World & world, Print print );
   ServiceLines( ServiceLines const & ) = delete;
   ServiceLines & operator=( ServiceLines const & ) = delete;
   ~ServiceLines();

   // All throw LineError. `line` is the text in which `config` stands.
   void config( Json const & config, std::string_view line );
   void link( Json const & byName );
   void enter( Json const & unit, Json const * without );
   void exit( Json const & unit );
   void status( Json const & unit );
   void ready( Json const & unit );

 private:
   Service::MaintenanceService & service( std::size_t column ) const;
   Service::MaintenanceService & runningService( std::size_t column ) const;
   [[noreturn]] void unknownUnit( Json const & unit, std::string const & name ) const;

   World & world_;
   Print const print_;
};

}  // namespace Sim
