#include "config/ConfigText.h"

#include <array>
#include <charconv>
#include <limits>

#include "kel/Json.h"

namespace Service::Config {

namespace {

using Kel::value;
using JsonObject = Kel::Value::Object;
using JsonList = Kel::Value::List;

Kel::Value listOf( std::vector<std::string> const & texts ) {
   JsonList list;
   for( std::string const & text : texts ) list.push_back( value( text ) );
   return Kel::Value( Kel::Value::Content( std::move( list ) ) );
}

// The shortest that reads back the same, and without an exponent, which no quantity has.
Kel::Value quantity( double number, char const * unit ) {
   constexpr std::size_t longest = std::numeric_limits<double>::max_exponent10 + std::numeric_limits<double>::digits10;
   std::array<char, 2 * longest> text{};
   auto const end = std::to_chars( text.data(), text.data() + text.size(), number, std::chars_format::fixed ).ptr;
   return value( std::string( text.data(), end ) + unit );
}

Kel::Value profileOf( Profile const & profile ) {
   JsonObject object{ { "threshold", quantity( profile.thresholdKbps, "kbps" ) },
                      { "sample-interval", quantity( profile.sampleIntervalSeconds, "s" ) },
                      { "load-interval", quantity( profile.loadIntervalSeconds, "s" ) },
                      { "shutdown", value( profile.shutdown ) } };
   if( profile.maxDelaySeconds ) object.emplace_back( "max-delay", quantity( *profile.maxDelaySeconds, "s" ) );
   return value( std::move( object ) );
}

char const * wordOf( OnTimeout onTimeout ) {
   switch( onTimeout ) {
      case OnTimeout::rollback: return "rollback";
      case OnTimeout::proceed: return "continue";
      case OnTimeout::hold: return "hold";
   }
   return "";
}

Kel::Value stageOf( Stage const & stage ) {
   JsonObject object{ { "name", value( stage.name ) } };
   if( !stage.run.empty() ) object.emplace_back( "run", listOf( stage.run ) );
   if( stage.timeoutSeconds ) object.emplace_back( "timeout", quantity( *stage.timeoutSeconds, "s" ) );
   // Nothing can be late or fail otherwise, and a file that says what happens then does not hold.
   bool const canFail = stage.timeoutSeconds || !stage.run.empty();
   if( canFail ) object.emplace_back( "on-timeout", value( wordOf( stage.onTimeout ) ) );
   return value( std::move( object ) );
}

Kel::Value stagesOf( std::vector<Stage> const & stages ) {
   JsonList list;
   for( Stage const & stage : stages ) list.push_back( stageOf( stage ) );
   return Kel::Value( Kel::Value::Content( std::move( list ) ) );
}

}  // namespace

Kel::Value jsonOf( Config const & config ) {
   JsonObject profiles, groups, units;
   for( Profile const & profile : config.profiles ) profiles.emplace_back( profile.name, profileOf( profile ) );
   for( Group const & group : config.groups ) {
      JsonObject object{ { "interfaces", listOf( group.interfaces ) } };
      if( group.profile ) object.emplace_back( "profile", value( *group.profile ) );
      groups.emplace_back( group.name, value( std::move( object ) ) );
   }
   for( Unit const & unit : config.units ) {
      units.emplace_back( unit.name, value( JsonObject{ { "groups", listOf( unit.groups ) } } ) );
   }
   return value( JsonObject{ { "profiles", value( std::move( profiles ) ) },
                             { "default-profile", value( config.defaultProfile ) },
                             { "groups", value( std::move( groups ) ) },
                             { "units", value( std::move( units ) ) },
                             { "stages", value( JsonObject{ { "maintEnter", stagesOf( config.stages.maintEnter ) },
                                                            { "maintExit", stagesOf( config.stages.maintExit ) } } ) },
                             { "preserve-ipv6", value( config.preserveIpv6 ) } } );
}

}  // namespace Service::Config
