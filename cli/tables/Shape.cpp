#include "tables/Shape.h"

#include <algorithm>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace Cli {

namespace json = boost::json;

namespace {

bool isOfKind( json::value const & value, Kind kind ) {
   switch( kind ) {
      case Kind::text: return value.is_string();
      case Kind::number: return value.is_number();
      case Kind::flag: return value.is_bool();
      case Kind::object: return value.is_object();
      case Kind::list: return value.is_array();
      case Kind::texts:
         return value.is_array() && std::all_of( value.get_array().begin(), value.get_array().end(),
                                                 []( json::value const & each ) { return each.is_string(); } );
   }
   return false;
}

char const * kindName( Kind kind ) {
   switch( kind ) {
      case Kind::text: return "a text";
      case Kind::number: return "a number";
      case Kind::flag: return "true or false";
      case Kind::object: return "an object";
      case Kind::list: return "a list";
      case Kind::texts: return "a list of texts";
   }
   return "";
}

std::string faultAt( std::string const & where, json::value const & value, Shape const & shape ) {
   std::string const subject = where.empty() ? "it" : where;
   auto const * const object = value.if_object();
   if( !object ) return subject + " is no object";
   for( auto const & [member, kind, each] : shape.members ) {
      auto const * const found = object->if_contains( member );
      if( !found || !isOfKind( *found, kind ) )
         return subject + " has no \"" + member + "\" that is " + kindName( kind );
      if( !each ) continue;
      auto const & elements = found->get_array();
      for( std::size_t i = 0; i < elements.size(); ++i ) {
         std::string const at = ( where.empty() ? "" : where + "." ) + member + "[" + std::to_string( i ) + "]";
         if( auto fault = faultAt( at, elements[i], *each ); !fault.empty() ) return fault;
      }
   }
   return "";
}

constexpr Needed accountMembers[] = { { "interface", Kind::text } };
constexpr Shape accountShape{ accountMembers };
constexpr Needed unitMembers[] = {
   { "unit", Kind::text },         { "state", Kind::text },
   { "generation", Kind::number }, { "ready", Kind::flag },
   { "disturbed", Kind::flag },    { "without", Kind::texts },
   { "now", Kind::number },        { "interfaces", Kind::list, &accountShape },
};
constexpr Needed unitsMembers[] = { { "units", Kind::list, &unitShape } };
constexpr Needed interfaceMembers[] = {
   { "interface", Kind::text }, { "operStatus", Kind::text }, { "shutDown", Kind::flag }, { "units", Kind::texts } };
constexpr Shape interfaceShape{ interfaceMembers };
constexpr Needed interfacesMembers[] = { { "interfaces", Kind::list, &interfaceShape } };
constexpr Needed readyMembers[] = { { "unit", Kind::text },
                                    { "ready", Kind::flag },
                                    { "disturbed", Kind::flag },
                                    { "now", Kind::number },
                                    { "why", Kind::texts } };
constexpr Needed requestMembers[] = {
   { "request", Kind::text }, { "unit", Kind::text }, { "result", Kind::text }, { "why", Kind::texts } };
constexpr Needed stageMembers[] = { { "number", Kind::number },
                                    { "stage", Kind::text },
                                    { "operation", Kind::text },
                                    { "began", Kind::number },
                                    { "result", Kind::text } };
constexpr Shape stageShape{ stageMembers };
constexpr Needed eventMembers[] = { { "time", Kind::number }, { "kind", Kind::text }, { "text", Kind::text } };
constexpr Shape eventShape{ eventMembers };
constexpr Needed verdictMembers[] = { { "stageNumber", Kind::number }, { "verdict", Kind::text } };
constexpr Shape verdictShape{ verdictMembers };
constexpr Shape rateShape{};
constexpr Needed windowInterfaceMembers[] = { { "interface", Kind::text },
                                              { "leftOut", Kind::flag },
                                              { "events", Kind::list, &eventShape },
                                              { "verdicts", Kind::list, &verdictShape },
                                              { "rates", Kind::list, &rateShape } };
constexpr Shape windowInterfaceShape{ windowInterfaceMembers };
constexpr Needed windowMembers[] = { { "unit", Kind::text },
                                     { "generation", Kind::number },
                                     { "asOf", Kind::number },
                                     { "requested", Kind::number },
                                     { "outcome", Kind::text },
                                     { "stages", Kind::list, &stageShape },
                                     { "interfaces", Kind::list, &windowInterfaceShape } };
constexpr Needed reloadMembers[] = { { "result", Kind::text } };
constexpr Needed levelsMembers[] = { { "levels", Kind::object } };
constexpr Needed errorMembers[] = { { "error", Kind::text } };

}  // namespace

constinit Shape const unitShape{ unitMembers };
constinit Shape const unitsShape{ unitsMembers };
constinit Shape const interfacesShape{ interfacesMembers };
constinit Shape const readyShape{ readyMembers };
constinit Shape const requestShape{ requestMembers };
constinit Shape const windowShape{ windowMembers };
constinit Shape const reloadShape{ reloadMembers };
constinit Shape const levelsShape{ levelsMembers };
constinit Shape const errorShape{ errorMembers };

std::string shapeFault( json::value const & answer, Shape const & shape ) { return faultAt( "", answer, shape ); }

}  // namespace Cli
