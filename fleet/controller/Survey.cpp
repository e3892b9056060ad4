#include "controller/Survey.h"

#include <cmath>

namespace Fleet {

namespace {

constexpr double silenceSteps = 60;  // s

// For how long a box is silent is told in steps: otherwise all boxes would have something new to tell with every second
// that they say nothing.
double momentOf( Dispatcher::Heard const & heard, double limit, double now ) {
   double const beyond = std::floor( ( now - heard.at - limit ) / silenceSteps ) * silenceSteps;
   return heard.at + std::floor( limit ) + 1 + beyond;
}

}  // namespace

Survey::BoxLook lookAt( Dispatcher const & dispatcher, Box const & box, double now ) {
   Survey::BoxLook look{
      .box = &box, .heard = dispatcher.heard( box.name ), .silent = true, .trouble = {}, .units = {} };
   double const limit = Dispatcher::silentHeartbeats * dispatcher.inventory().heartbeatSeconds();
   look.silent = !look.heard || now - look.heard->at > limit;
   if( look.heard ) look.trouble = dispatcher.troubleOf( *look.heard, now );
   double const moment = look.heard && look.silent ? momentOf( *look.heard, limit, now ) : now;
   for( std::string const & unit : box.units ) {
      look.units.push_back( dispatcher.standing( { box.name, unit }, moment ) );
   }
   return look;
}

Survey surveyOf( Dispatcher const & dispatcher, double now ) {
   Survey survey;
   survey.now = now;
   survey.boxes.reserve( dispatcher.inventory().boxes().size() );
   for( Box const & box : dispatcher.inventory().boxes() ) {
      Survey::BoxLook const & look = survey.boxes.emplace_back( lookAt( dispatcher, box, now ) );
      survey.units += box.units.size();
      survey.silentBoxes += look.silent ? 1 : 0;
      for( std::size_t i = 0; i < box.units.size(); ++i ) {
         if( !look.units[i].out ) {
            ++survey.inService;
            continue;
         }
         UnitName const unit{ box.name, box.units[i] };
         for( Group const * group : dispatcher.inventory().groupsOf( unit ) )
            survey.out[group].push_back( { unit, &look.units[i].why } );
      }
   }
   return survey;
}

}  // namespace Fleet
