#include "controller/Views.h"

#include <boost/json/parse.hpp>

#include <algorithm>
#include <cmath>

namespace Fleet {

namespace json = boost::json;

namespace {

// Of those that are over; who wants older ones asks for all.
constexpr std::size_t plansOverTold = 20;

json::object countsView( Survey const & survey ) {
   return { { "boxes", survey.boxes.size() },
            { "units", survey.units },
            { "inService", survey.inService },
            { "out", survey.units - survey.inService },
            { "silent", survey.silentBoxes } };
}

json::array brakesView( Dispatcher const & dispatcher ) {
   json::array brakes;
   for( auto const & [site, brake] : dispatcher.books().brakes() )
      brakes.push_back( { { "site", site }, { "by", brake.by }, { "since", numberView( brake.since ) } } );
   return brakes;
}

json::array groupsView( Dispatcher const & dispatcher, Survey const & survey ) {
   json::array groups;
   for( Group const & group : dispatcher.inventory().groups() ) {
      json::array out;
      if( auto const its = survey.out.find( &group ); its != survey.out.end() ) {
         for( auto const & [unit, why] : its->second ) out.push_back( { { "unit", unit.text() }, { "why", *why } } );
      }
      groups.push_back( { { "group", group.name },
                          { "budget", group.budget.text() },
                          { "units", group.units.size() },
                          { "mayBeOut", group.mayBeOut() },
                          { "out", std::move( out ) } } );
   }
   return groups;
}

std::string joined( std::string const & one, std::string const & other, char const * between ) {
   return one + ( one.empty() || other.empty() ? "" : between ) + other;
}

UnitStatus const * statusIn( Survey::BoxLook const & look, std::string const & unit ) {
   if( !look.heard ) return nullptr;
   auto const its = look.heard->status.units.find( unit );
   return its == look.heard->status.units.end() ? nullptr : &its->second;
}

json::object unitView( std::string const & name, Standing const & stands, UnitStatus const & status ) {
   return { { "unit", name },
            { "out", stands.out },
            { "why", joined( stands.why, status.why, ": " ) },
            { "state", nameOf( status.state ) },
            { "ready", status.ready },
            { "disturbed", status.disturbed },
            { "settled", status.settled },
            { "interfaces", status.interfaces } };
}

json::value orderView( Slot const * slot, UnitStatus const & status ) {
   if( !slot ) return nullptr;
   return json::object{ { "number", slot->order.number },
                        { "want", nameOf( slot->order.want ) },
                        { "plan", slot->order.plan },
                        { "issued", numberView( slot->issued ) },
                        { "expires", numberView( slot->order.expires ) },
                        { "open", slot->open },
                        { "acknowledged", status.acknowledged },
                        { "outcome", nameOf( status.outcome ) } };
}

json::array unsettledView( UnitStatus const & status ) {
   json::array unsettled;
   for( Interface const & intf : status.unsettled )
      unsettled.push_back( { { "interface", intf.name },
                             { "verdict", intf.verdict },
                             { "bitsRate", intf.bitsRate ? json::value( *intf.bitsRate ) : json::value() },
                             { "why", intf.why } } );
   return unsettled;
}

// The units of a box, each with what `more` adds to it.
template<class More>
json::object viewOf( Survey::BoxLook const & look, More const & more ) {
   json::object labels;
   for( auto const & [label, text] : look.box->labels ) labels[label] = text;
   json::array units;
   for( std::size_t i = 0; i < look.box->units.size(); ++i ) {
      std::string const & name = look.box->units[i];
      UnitStatus const * const known = statusIn( look, name );
      UnitStatus const status = known ? *known : UnitStatus();
      json::object unit = unitView( name, look.units[i], status );
      more( unit, name, status );
      units.push_back( std::move( unit ) );
   }
   return { { "box", look.box->name },
            { "labels", std::move( labels ) },
            { "heard", look.heard ? numberView( look.heard->at ) : json::value() },
            { "silent", look.silent },
            { "trouble", look.trouble },
            { "units", std::move( units ) } };
}

}  // namespace

json::value numberView( double number ) {
   constexpr double exact = 1e15;
   if( number == std::floor( number ) && std::abs( number ) < exact ) return static_cast<int64_t>( number );
   return number;
}

json::array unitsView( std::vector<UnitName> const & units ) {
   json::array names;
   for( UnitName const & unit : units ) names.push_back( json::string( unit.text() ) );
   return names;
}

json::array textsView( std::vector<std::string> const & texts ) { return json::array( texts.begin(), texts.end() ); }

json::object fleetView( Dispatcher const & dispatcher, Survey const & survey, Surroundings const & surroundings ) {
   json::array plans;
   std::size_t over = 0;
   for( Plan const * plan : plansByAge( dispatcher ) ) {
      if( !plan->over() || over++ < plansOverTold ) plans.push_back( planView( dispatcher, *plan, survey.now ) );
   }
   return { { "now", numberView( survey.now ) },
            { "reachable", surroundings.reachable },
            { "broker", surroundings.broker },
            { "doubt", joined( dispatcher.doubt(), surroundings.trouble, "; " ) },
            { "heartbeatSeconds", numberView( dispatcher.inventory().heartbeatSeconds() ) },
            { "counts", countsView( survey ) },
            { "brakes", brakesView( dispatcher ) },
            { "groups", groupsView( dispatcher, survey ) },
            { "plans", std::move( plans ) } };
}

json::object boxView( Survey::BoxLook const & look ) {
   return viewOf( look, []( json::object const &, std::string const &, UnitStatus const & ) {} );
}

json::object wholeBoxView( Dispatcher const & dispatcher, Survey::BoxLook const & look ) {
   return viewOf( look, [&]( json::object & unit, std::string const & name, UnitStatus const & status ) {
      unit["order"] = orderView( dispatcher.books().slot( { look.box->name, name } ), status );
      unit["unsettled"] = unsettledView( status );
   } );
}

json::object boxesView( Survey const & survey ) {
   json::array boxes;
   for( Survey::BoxLook const & look : survey.boxes ) boxes.push_back( boxView( look ) );
   return { { "now", numberView( survey.now ) }, { "boxes", std::move( boxes ) } };
}

json::object canStopView( Dispatcher const & dispatcher, std::vector<UnitName> const & units, double now ) {
   json::array groups;
   std::vector<std::string> why;
   if( !dispatcher.doubt().empty() ) why.push_back( dispatcher.doubt() );
   for( Room const & room : dispatcher.roomFor( units, now ) ) {
      json::array who;
      for( UnitName const & unit : room.who )
         who.push_back( { { "unit", unit.text() }, { "why", dispatcher.standing( unit, now ).why } } );
      groups.push_back( { { "group", room.group->name },
                          { "budget", room.group->budget.text() },
                          { "units", room.group->units.size() },
                          { "mayBeOut", room.group->mayBeOut() },
                          { "out", room.out },
                          { "wouldBeOut", room.wouldBeOut },
                          { "who", std::move( who ) },
                          { "enough", room.enough() } } );
      if( room.enough() ) continue;
      why.push_back( room.group->name + " would have " + std::to_string( room.wouldBeOut ) + " of " +
                     std::to_string( room.group->units.size() ) + " out, and has " + room.group->budget.text() );
   }
   bool const canStop = why.empty();
   return { { "canStop", canStop }, { "groups", std::move( groups ) }, { "why", textsView( why ) } };
}

json::object layoutView( std::string const & id, Layout const & layout ) {
   json::array waves;
   for( auto const & wave : layout.waves ) waves.push_back( unitsView( wave ) );
   return { { "plan", id.empty() ? json::value() : json::value( json::string( id ) ) },
            { "waves", std::move( waves ) },
            { "reasons", textsView( layout.reasons ) } };
}

json::object historyView( Records const & happened, std::size_t most, double now ) {
   auto const orNull = []( std::string const & text ) { return text.empty() ? json::value() : json::value( text ); };
   json::array history;
   for( auto record = happened.rbegin(); record != happened.rend(); ++record ) {
      json::object row{ { "number", record->number },
                        { "time", numberView( record->time ) },
                        { "box", orNull( record->box ) },
                        { "unit", orNull( record->unit ) },
                        { "plan", orNull( record->plan ) } };
      boost::system::error_code unreadable;
      json::value const text = json::parse( record->text, unreadable );
      if( text.is_object() ) row.insert( text.get_object().begin(), text.get_object().end() );
      history.push_back( std::move( row ) );
   }
   bool const more = !happened.empty() && happened.size() == most;
   return { { "now", numberView( now ) },
            { "before", more ? json::value( happened.back().number ) : json::value() },
            { "history", std::move( history ) } };
}

}  // namespace Fleet
