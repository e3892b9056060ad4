#include "controller/Query.h"

#include <charconv>
#include <limits>

#include "kel/ReadDuration.h"

namespace Fleet {

namespace {

// A second's work, and a few megabytes.
constexpr uint64_t mostRecords = 10'000;

[[noreturn]] void unknownParameter( std::string const & name, char const * takes ) {
   throw BadQuery( "there is no parameter \"" + name + "\" here: it takes " + takes );
}

double secondsIn( std::string const & name, std::string const & text ) {
   Kel::ReadDuration const read = Kel::readDuration( text );
   if( !read.reason.empty() ) throw BadQuery( name + " " + read.reason );
   return read.seconds;
}

// "plane:b"
void addLabel( Labels & labels, std::string const & text ) {
   std::size_t const colon = text.find( ':' );
   if( colon == 0 || colon == std::string::npos || colon + 1 == text.size() )
      throw BadQuery( "a label is given with its value, as label=plane:b, not \"" + text + "\"" );
   std::string const label = text.substr( 0, colon );
   std::size_t const value = text.find_first_not_of( ' ', colon + 1 );
   if( value == std::string::npos || !labels.emplace( label, text.substr( value ) ).second )
      throw BadQuery( "label \"" + label + "\" is given twice, or has no value" );
}

UnitName unitIn( std::string const & parameter, std::string const & text ) {
   if( auto const unit = unitNamed( text ) ) return *unit;
   throw BadQuery( parameter + " takes a box and its unit, as spine-3a/fabric, not \"" + text + "\"" );
}

std::vector<WaveSize> wavesIn( std::string const & text ) {
   try {
      return waveSizes( text );
   } catch( std::invalid_argument const & fault ) {
      throw BadQuery( fault.what() );
   }
}

AtDeadline atDeadlineIn( std::string const & text ) {
   if( auto const at = named<AtDeadline>( text ) ) return *at;
   throw BadQuery( "at-deadline is hold or give-back, not \"" + text + "\"" );
}

bool flagIn( std::string const & name, std::string const & text ) {
   if( text != "1" && text != "0" ) throw BadQuery( name + " is 1 or 0, not \"" + text + "\"" );
   return text == "1";
}

uint64_t wholeIn( std::string const & name, std::string const & text, uint64_t most ) {
   uint64_t number = 0;
   auto const read = std::from_chars( text.data(), text.data() + text.size(), number );
   if( read.ec == std::errc() && read.ptr == text.data() + text.size() && number <= most ) return number;
   throw BadQuery( name + " is a whole number of at most " + std::to_string( most ) + ", not \"" + text + "\"" );
}

std::string textIn( std::string const & name, std::string const & text ) {
   if( text.empty() ) throw BadQuery( name + " is empty" );
   return text;
}

}  // namespace

PlanQuery planQuery( Parameters const & given, std::string const & by ) {
   PlanQuery query;
   PlanRequest & request = query.request;
   request.by = by;
   bool all = false;
   for( auto const & [name, text] : given ) {
      if( name == "box" ) {
         request.select.boxes.push_back( textIn( name, text ) );
      } else if( name == "label" ) {
         addLabel( request.select.labels, text );
      } else if( name == "unit" ) {
         request.select.unit = textIn( name, text );
      } else if( name == "waves" ) {
         request.waves = wavesIn( text );
      } else if( name == "soak" ) {
         request.soakSeconds = secondsIn( name, text );
      } else if( name == "deadline" ) {
         request.deadlineSeconds = secondsIn( name, text );
      } else if( name == "at-deadline" ) {
         request.atDeadline = atDeadlineIn( text );
      } else if( name == "stay" ) {
         request.staySeconds = secondsIn( name, text );
      } else if( name == "all" ) {
         all = flagIn( name, text );
      } else if( name == "dry-run" ) {
         query.dryRun = flagIn( name, text );
      } else {
         unknownParameter( name, "box, label, unit, all, waves, soak, deadline, at-deadline, stay and dry-run" );
      }
   }
   // All of the fleet is meant only where somebody says so.
   if( all == ( request.select != Selection() ) )
      throw BadQuery( "which units? It takes box, label or unit, as often as needed, or all=1" );
   if( request.deadlineSeconds == 0 ) throw BadQuery( "a deadline of nothing cannot be kept" );
   return query;
}

UnitsQuery unitsQuery( Parameters const & given ) {
   UnitsQuery query;
   for( auto const & [name, text] : given ) {
      if( name == "box" ) {
         query.select.boxes.push_back( textIn( name, text ) );
      } else if( name == "unit" && text.find( '/' ) != std::string::npos ) {
         query.units.push_back( unitIn( name, text ) );
      } else if( name == "unit" ) {
         query.select.unit = textIn( name, text );
      } else {
         unknownParameter( name, "box and unit" );
      }
   }
   if( query.units.empty() && query.select.boxes.empty() )
      throw BadQuery( "which? It takes box=NAME, or unit=BOX/UNIT, as often as needed" );
   return query;
}

std::vector<UnitName> withoutQuery( Parameters const & given ) {
   std::vector<UnitName> units;
   for( auto const & [name, text] : given ) {
      if( name != "without" ) unknownParameter( name, "without=BOX/UNIT, as often as needed, and nothing else" );
      units.push_back( unitIn( name, text ) );
   }
   return units;
}

std::string siteQuery( Parameters const & given ) {
   std::string site;
   for( auto const & [name, text] : given ) {
      if( name != "site" || !site.empty() ) unknownParameter( name, "site, once, and nothing else" );
      site = textIn( name, text );
   }
   return site;
}

RecordQuery historyQuery( Parameters const & given ) {
   RecordQuery query;
   for( auto const & [name, text] : given ) {
      if( name == "box" ) {
         query.box = textIn( name, text );
      } else if( name == "unit" && text.find( '/' ) != std::string::npos ) {
         UnitName const unit = unitIn( name, text );
         query.box = unit.box;
         query.unit = unit.unit;
      } else if( name == "unit" ) {
         query.unit = textIn( name, text );
      } else if( name == "plan" ) {
         query.plan = textIn( name, text );
      } else if( name == "since" ) {
         query.since = static_cast<double>( wholeIn( name, text, std::numeric_limits<int64_t>::max() ) );
      } else if( name == "before" ) {
         query.before = wholeIn( name, text, std::numeric_limits<int64_t>::max() );
      } else if( name == "most" ) {
         query.most = wholeIn( name, text, mostRecords );
      } else {
         unknownParameter( name, "box, unit, plan, since, before and most" );
      }
   }
   return query;
}

void noQuery( Parameters const & given ) {
   if( !given.empty() ) unknownParameter( given.front().first, "none" );
}

}  // namespace Fleet
