#include "record/Beginning.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "dovra/StatePath.h"
#include "kel/Json.h"
#include "records/Names.h"
#include "records/Unit.h"

namespace Host {

using Kel::value;
using Kel::Value;
namespace Path = Maintenance::Path;

namespace {

std::string utc( double unixTime ) {
   auto const seconds = static_cast<std::time_t>( unixTime );
   std::tm parts{};
   ::gmtime_r( &seconds, &parts );
   std::array<char, 64> text{};
   std::strftime( text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts );
   return text.data();
}

Value * member( Value::Object & object, std::string_view name ) {
   auto const found = std::ranges::find( object, name, &Value::Object::value_type::first );
   return found == object.end() ? nullptr : &found->second;
}

Value::Object objectOf( Value const & found ) {
   auto const * const object = found.as<Value::Object>();
   return object ? *object : Value::Object();
}

// Of the windows those that are underway, and without the rates, which are for a page of the time before.
Value underwayOf( Value const & windows ) {
   auto dir = objectOf( windows );
   Value * const all = member( dir, "window" );
   if( !all ) return windows;
   Value::Object kept;
   for( auto & [name, window] : objectOf( *all ) ) {
      auto object = objectOf( window );
      Value const * const ended = member( object, "ended" );
      if( ended && *ended != value( 0.0 ) ) continue;
      Value::Object intfs;
      Value * const intf = member( object, "intf" );
      for( auto & [id, record] : objectOf( intf ? *intf : Value() ) ) {
         auto fields = objectOf( record );
         std::erase_if( fields, []( auto const & field ) { return field.first == "rates"; } );
         intfs.emplace_back( id, value( std::move( fields ) ) );
      }
      if( intf ) *intf = value( std::move( intfs ) );
      kept.emplace_back( name, value( std::move( object ) ) );
   }
   *all = value( std::move( kept ) );
   return value( std::move( dir ) );
}

}  // namespace

std::deque<std::string> RecordBeginning::head() const {
   auto lines = comments();
   Value::Object header{ { "host", value( host ) },
                         { "maintd", value( version ) },
                         { "clock", value( clock ) },
                         { "unixTime", value( unixTime ) } };
   lines.push_back( Kel::toJson( value( Value::Object{ { "recorded", value( std::move( header ) ) } } ) ) );
   lines.push_back( Kel::toJson( value( Value::Object{ { "kept", kept() } } ) ) );
   return lines;
}

std::deque<std::string> RecordBeginning::comments() const {
   std::deque<std::string> lines{
      "# What happened on the box " + Kel::toJson( std::string_view( host ) ) + " from " + utc( unixTime ) +
         " on, recorded by maintd" + ( version.empty() ? "" : " " + version ) + ".",
      "# Had it had another configuration, what would have become of its units?",
      "#    maintsim --config other.yaml --summary --plot run.svg --html stay.html THIS-FILE",
      "# Without --config it is replayed with the configuration that it had. Times are seconds of its maintd's clock.",
      "# It has the links that the configuration names, and what they are made of, and no others." };
   std::string const underWay = unitsUnderWay();
   if( !underWay.empty() ) {
      lines.push_back( "# On their way through maintenance already were: " + underWay +
                       ". What was known of their links is proven anew, as after a restart." );
   }
   return lines;
}

std::string RecordBeginning::unitsUnderWay() const {
   std::string names;
   for( auto [name, unit] : state.unitStatus->statusIterator() ) {
      if( unit->state() == Maintenance::Unit::State::active ) continue;
      names += ( names.empty() ? "" : ", " ) + Kel::toJson( std::string_view( name.str() ) );
   }
   return names;
}

Value RecordBeginning::kept() const {
   Value::Object kept;
   auto const add = [&]( std::string const & path ) { kept.emplace_back( path, Dovra::stateValue( database, path ) ); };
   add( std::string( Path::unitStatus ) );
   if( unitsUnderWay().empty() ) return value( std::move( kept ) );
   for( auto const path : { Path::monIntfStatus, Path::errdisableCauses } ) add( std::string( path ) );
   for( auto const stageClass : { Maintenance::enterStageClass, Maintenance::exitStageClass } ) {
      add( Path::stageProgress( stageClass ) );
      add( Path::stageCompletion( stageClass ) );
      add( Path::stageAgentStatus( stageClass ) );
   }
   std::string const windows( Path::windows );
   kept.emplace_back( windows, underwayOf( Dovra::stateValue( database, windows ) ) );
   return value( std::move( kept ) );
}

}  // namespace Host
