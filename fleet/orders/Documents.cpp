#include <boost/json/serialize.hpp>

#include "orders/Member.h"
#include "orders/Orders.h"

namespace Fleet {

namespace json = boost::json;

json::object orderValue( Order const & order ) {
   return { { "number", order.number },
            { "want", nameOf( order.want ) },
            { "plan", order.plan },
            { "expires", order.expires },
            { "deadlineSeconds", order.deadlineSeconds },
            { "atDeadline", nameOf( order.atDeadline ) } };
}

Order orderFrom( Object const & in ) {
   return { .number = in.whole( "number" ),
            .want = in.word<Want>( "want" ),
            .plan = in.text( "plan" ),
            .expires = in.number( "expires" ),
            .deadlineSeconds = in.number( "deadlineSeconds" ),
            .atDeadline = in.word<AtDeadline>( "atDeadline" ) };
}

namespace {

json::object valueOf( Interface const & intf ) {
   return { { "name", intf.name },
            { "verdict", intf.verdict },
            { "bitsRate", intf.bitsRate ? json::value( *intf.bitsRate ) : json::value() },
            { "why", intf.why } };
}

Interface interfaceFrom( Object const & in ) {
   return { in.text( "name" ), in.text( "verdict" ), in.numberIfAny( "bitsRate" ), in.text( "why" ) };
}

json::object valueOf( UnitStatus const & unit ) {
   json::array unsettled;
   for( Interface const & intf : unit.unsettled ) unsettled.push_back( valueOf( intf ) );
   return { { "state", nameOf( unit.state ) },
            { "ready", unit.ready },
            { "disturbed", unit.disturbed },
            { "acknowledged", unit.acknowledged },
            { "outcome", nameOf( unit.outcome ) },
            { "why", unit.why },
            { "since", unit.since },
            { "settled", unit.settled },
            { "interfaces", unit.interfaces },
            { "unsettled", std::move( unsettled ) } };
}

UnitStatus unitFrom( Object const & in ) {
   UnitStatus unit{ .state = in.word<UnitState>( "state" ),
                    .ready = in.flag( "ready" ),
                    .disturbed = in.flag( "disturbed" ),
                    .acknowledged = in.whole( "acknowledged" ),
                    .outcome = in.word<Outcome>( "outcome" ),
                    .why = in.text( "why" ),
                    .since = in.number( "since" ),
                    .settled = static_cast<uint32_t>( in.whole( "settled" ) ),
                    .interfaces = static_cast<uint32_t>( in.whole( "interfaces" ) ),
                    .unsettled = {} };
   std::size_t number = 0;
   for( json::value const & intf : in.list( "unsettled" ) ) {
      if( number == UnitStatus::interfacesTold ) break;
      unit.unsettled.push_back(
         interfaceFrom( objectIn( intf, in.placeOf( "unsettled" ) + "[" + std::to_string( number++ ) + "]" ) ) );
   }
   return unit;
}

}  // namespace

std::string textOf( Desired const & desired ) {
   json::object orders;
   for( auto const & [unit, order] : desired.orders ) orders[unit] = orderValue( order );
   return json::serialize( json::object{ { "box", desired.box }, { "orders", std::move( orders ) } } );
}

std::string textOf( Status const & status ) {
   json::object units;
   for( auto const & [name, unit] : status.units ) units[name] = valueOf( unit );
   return json::serialize( json::object{ { "box", status.box },
                                         { "life", status.life },
                                         { "sequence", status.sequence },
                                         { "time", status.time },
                                         { "heartbeatSeconds", status.heartbeatSeconds },
                                         { "trouble", status.trouble },
                                         { "units", std::move( units ) } } );
}

Desired desiredFrom( std::string_view text ) {
   json::value const document = documentIn( text, "desired" );
   Object const in = objectIn( document, "desired" );
   Desired desired{ in.text( "box" ), {} };
   Object const orders = in.object( "orders" );
   for( auto const & [unit, order] : orders.members ) {
      desired.orders[std::string( unit )] = orderFrom( objectIn( order, orders.placeOf( unit ) ) );
   }
   return desired;
}

Status statusFrom( std::string_view text ) {
   json::value const document = documentIn( text, "status" );
   Object const in = objectIn( document, "status" );
   Status status{ .box = in.text( "box" ),
                  .life = in.whole( "life" ),
                  .sequence = in.whole( "sequence" ),
                  .time = in.number( "time" ),
                  .heartbeatSeconds = in.number( "heartbeatSeconds" ),
                  .trouble = in.text( "trouble" ),
                  .units = {} };
   Object const units = in.object( "units" );
   for( auto const & [name, unit] : units.members ) {
      status.units[std::string( name )] = unitFrom( objectIn( unit, units.placeOf( name ) ) );
   }
   return status;
}

}  // namespace Fleet
