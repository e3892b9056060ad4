#include "ApiBox.h"

#include "kel/Assert.h"

namespace Host {

void ApiBox::makeUnit() {
   std::string const config =
      "profiles: { quick: { threshold: 100kbps } }\n"
      "default-profile: quick\n"
      "groups: { g: { interfaces: [up1, up2] } }\n"
      "units: { fabric: { groups: [g] } }\n";
   loop_.turn( [&] {
      KEL_ASSERT( service_.reload( Service::Config::parse( config, "maintd.yaml" ) ).empty() );
      Service::LinkReport report;
      report.up = true;
      links_.linkIs( Lumo::IntfId::declare( "up1", Lumo::IntfKind::ethernet ), report );
   } );
}

HttpAnswer ApiBox::ask( HttpRequest const & request ) {
   HttpAnswer answer;
   loop_.turn( [&] { answer = api_.answer( request ); } );
   storeTrouble_ += storeTroubleOfTurn_;
   if( answer.afterTurn ) answer.afterTurn( answer );
   return answer;
}

}  // namespace Host
