#include "scenario/Recording.h"

#include "scenario/Arguments.h"

namespace Sim {

namespace {

constexpr double latest = 1e12;  // s

std::string memberText( Json const & object, char const * name ) {
   Json const * const found = object.member( name );
   return found ? text( *found, "a text" ) : "";
}

double memberSeconds( Json const & object, char const * name ) {
   Json const * const found = object.member( name );
   if( !found ) throw LineError( object.column, std::string( "a recording says its \"" ) + name + "\"" );
   return amount( *found, "a time", latest );
}

std::string nameOf( Service::Decision const & decision ) {
   bool const both = !decision.unit.empty() && !decision.interface.empty();
   return decision.unit + ( both ? " " : "" ) + decision.interface;
}

}  // namespace

std::optional<Recording::Header> Recording::headerOf( std::string_view line ) {
   // Whether it is JSON at all is said when its turn comes.
   if( line.find( "\"recorded\"" ) == std::string_view::npos ) return std::nullopt;
   Json const json = parseJson( line );
   if( !std::holds_alternative<Json::Object>( json.content ) ) return std::nullopt;
   Json const * const said = json.member( "recorded" );
   if( !said || !std::holds_alternative<Json::Object>( said->content ) || !said->member( "clock" ) )
      return std::nullopt;
   return Header{ memberText( *said, "host" ), memberText( *said, "maintd" ), memberSeconds( *said, "clock" ),
                  memberSeconds( *said, "unixTime" ) };
}

void Recording::recorded( Json const & said ) {
   static_cast<void>( said.object( "an object" ) );
   if( said.member( "clock" ) ) {
      return headerIs( { memberText( said, "host" ), memberText( said, "maintd" ), memberSeconds( said, "clock" ),
                         memberSeconds( said, "unixTime" ) } );
   }
   std::string const is = memberText( said, "is" );
   if( is.empty() ) throw LineError( said.column, "what was decided is wanted here, as \"is\"" );
   if( !header_ ) throw LineError( said.column, "a recording begins with a line that says its \"clock\"" );
   recorded_.push_back(
      { world_.now(), nameOf( { memberText( said, "unit" ), memberText( said, "interface" ), is } ), is } );
}

void Recording::headerIs( Header const & header ) {
   header_ = header;
   began_ = world_.now();
   // Not of the header's clock, as somebody may replay it at another time.
   wallClockOffset_ = header.unixTime - began_;
   world_.agent().wallClockOffsetIs( wallClockOffset_ );
   decisions_ = std::make_unique<Service::Decisions>(
      world_.state(), *world_.database(), [this]( Service::Decision const & decision ) {
         replayed_.push_back( { world_.now(), nameOf( decision ), decision.is } );
      } );
}

std::string Recording::comparison() const {
   if( !header_ ) return "";
   Report::Moments const moments( wallClockOffset_, began_ );
   return "\nRecorded on " + ( header_->host.empty() ? "a box" : header_->host ) + ", " + moments.full( began_ ) +
          " to " + moments.full( world_.now() ) + "\n" + Report::comparison( recorded_, replayed_, moments );
}

}  // namespace Sim
