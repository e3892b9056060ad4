#include "plan/Rows.h"

#include <boost/json/serialize.hpp>

#include "orders/Member.h"
#include "plan/Event.h"

namespace Fleet {

namespace json = boost::json;

template<>
std::optional<Step> named( std::string_view name ) {
   for( Step const step : { Step::waiting, Step::draining, Step::drained, Step::returning, Step::done } ) {
      if( nameOf( step ) == name ) return step;
   }
   return std::nullopt;
}

template<>
std::optional<PlanState> named( std::string_view name ) {
   for( PlanState const s : { PlanState::running, PlanState::paused, PlanState::finished, PlanState::cancelled } ) {
      if( nameOf( s ) == name ) return s;
   }
   return std::nullopt;
}

namespace {

json::value orNull( std::optional<double> number ) { return number ? json::value( *number ) : json::value(); }

UnitName unitIn( Object const & in ) {
   if( auto const unit = unitNamed( in.text( "unit" ) ) ) return *unit;
   throw BadDocument( in.placeOf( "unit" ) + " is no unit" );
}

json::object valueOf( PlanRequest const & request ) {
   json::array boxes( request.select.boxes.begin(), request.select.boxes.end() );
   json::object labels;
   for( auto const & [label, text] : request.select.labels ) labels[label] = text;
   json::array waves;
   for( WaveSize const & size : request.waves )
      waves.push_back( { { "amount", size.amount }, { "share", size.share } } );
   return { { "by", request.by },
            { "boxes", std::move( boxes ) },
            { "labels", std::move( labels ) },
            { "unit", request.select.unit },
            { "waves", std::move( waves ) },
            { "soakSeconds", request.soakSeconds },
            { "deadlineSeconds", request.deadlineSeconds },
            { "atDeadline", nameOf( request.atDeadline ) },
            { "staySeconds", orNull( request.staySeconds ) } };
}

std::string textIn( json::value const & value, std::string const & place ) {
   if( !value.is_string() ) throw BadDocument( place + " has something that is no text" );
   return std::string( value.get_string() );
}

PlanRequest requestFrom( Object const & in ) {
   PlanRequest request;
   request.by = in.text( "by" );
   for( json::value const & box : in.list( "boxes" ) ) {
      request.select.boxes.push_back( textIn( box, in.placeOf( "boxes" ) ) );
   }
   for( auto const & [label, text] : in.object( "labels" ).members ) {
      request.select.labels[std::string( label )] = textIn( text, in.placeOf( "labels" ) );
   }
   request.select.unit = in.text( "unit" );
   request.waves.clear();
   for( json::value const & wave : in.list( "waves" ) ) {
      Object const size = objectIn( wave, in.placeOf( "waves" ) );
      request.waves.push_back( { size.number( "amount" ), size.flag( "share" ) } );
   }
   request.soakSeconds = in.number( "soakSeconds" );
   request.deadlineSeconds = in.number( "deadlineSeconds" );
   request.atDeadline = in.word<AtDeadline>( "atDeadline" );
   request.staySeconds = in.numberIfAny( "staySeconds" );
   return request;
}

json::array valueOf( Wave const & wave ) {
   json::array members;
   for( Member const & member : wave ) {
      members.push_back( { { "unit", member.unit.text() },
                           { "step", nameOf( member.step ) },
                           { "since", member.since },
                           { "fault", member.fault },
                           { "leftOut", member.leftOut } } );
   }
   return members;
}

Wave waveFrom( json::value const & value, std::string const & place ) {
   if( !value.is_array() ) throw BadDocument( place + " has something that is no list" );
   Wave wave;
   for( json::value const & each : value.get_array() ) {
      Object const member = objectIn( each, place );
      wave.push_back( { unitIn( member ), member.word<Step>( "step" ), member.number( "since" ), member.text( "fault" ),
                        member.flag( "leftOut" ) } );
   }
   return wave;
}

// Reads with what is wrong turned into what it is for the books: a row that cannot be read.
template<typename T>
T read( std::string const & key, std::string_view text, T ( *from )( Object const & ) ) {
   try {
      json::value const document = documentIn( text, key );
      return from( objectIn( document, key ) );
   } catch( BadDocument const & fault ) {
      throw MemoryDamaged( std::string( "a row of the books cannot be read: " ) + fault.what() );
   }
}

}  // namespace

Record recordOf( Event const & event, double time ) {
   json::array budgets;
   for( Event::Filled const & of : event.budgets ) {
      budgets.push_back(
         { { "group", of.group }, { "out", of.out }, { "mayBeOut", of.mayBeOut }, { "units", of.units } } );
   }
   json::object text{ { "what", event.what }, { "text", event.text } };
   if( !event.by.empty() ) text["by"] = event.by;
   if( event.order != 0 ) text["order"] = event.order;
   if( !budgets.empty() ) text["budgets"] = std::move( budgets );
   return { .time = time,
            .box = event.unit ? event.unit->box : "",
            .unit = event.unit ? event.unit->unit : "",
            .plan = event.plan,
            .text = json::serialize( text ) };
}

std::string rowOf( Slot const & slot ) {
   json::object row = orderValue( slot.order );
   row["issued"] = slot.issued;
   row["open"] = slot.open;
   row["told"] = nameOf( slot.told );
   return json::serialize( row );
}

std::string rowOf( Plan const & plan ) {
   json::array waves;
   for( Wave const & wave : plan.waves ) waves.push_back( valueOf( wave ) );
   return json::serialize( json::object{ { "id", plan.id },
                                         { "request", valueOf( plan.request ) },
                                         { "waves", std::move( waves ) },
                                         { "wave", plan.wave },
                                         { "state", nameOf( plan.state ) },
                                         { "why", plan.why },
                                         { "soakedFrom", orNull( plan.soakedFrom ) },
                                         { "made", plan.made } } );
}

std::string rowOf( Brake const & brake ) {
   return json::serialize( json::object{ { "by", brake.by }, { "since", brake.since } } );
}

Slot slotFrom( std::string const & key, std::string_view text ) {
   return read<Slot>( key, text, []( Object const & in ) {
      // Books of a release that had no ledger do not have it.
      bool const told = in.members.contains( "told" );
      return Slot{ orderFrom( in ), in.number( "issued" ), in.flag( "open" ),
                   told ? in.word<Outcome>( "told" ) : Outcome::none };
   } );
}

Plan planFrom( std::string const & key, std::string_view text ) {
   return read<Plan>( key, text, []( Object const & in ) {
      Plan plan;
      plan.id = in.text( "id" );
      plan.request = requestFrom( in.object( "request" ) );
      for( json::value const & wave : in.list( "waves" ) ) {
         plan.waves.push_back( waveFrom( wave, in.placeOf( "waves" ) ) );
      }
      plan.wave = in.whole( "wave" );
      plan.state = in.word<PlanState>( "state" );
      plan.why = in.text( "why" );
      plan.soakedFrom = in.numberIfAny( "soakedFrom" );
      plan.made = in.number( "made" );
      bool const holds = !plan.waves.empty() && plan.wave < plan.waves.size() && !plan.request.waves.empty();
      if( !holds ) throw BadDocument( in.at + " has a wave under way that it has not" );
      return plan;
   } );
}

Brake brakeFrom( std::string const & key, std::string_view text ) {
   return read<Brake>( key, text, []( Object const & in ) { return Brake{ in.text( "by" ), in.number( "since" ) }; } );
}

}  // namespace Fleet
