// What the owner tells of the fleet, as JSON: the answers of its API, and what its stream is made of.
//
// Functions of the dispatcher and one moment; nothing is kept. Times are s, Unix time. The members stand where each is
// made.
#pragma once

#include <boost/json/object.hpp>
#include <string>
#include <vector>

#include "controller/Survey.h"

namespace Fleet {

// How the owner stands with all that is not the dispatcher's.
struct Surroundings {
   bool reachable = false;   // boxes, by the broker
   std::string broker = {};  // why it is not connected; empty while it is
   // Why nothing is decided, as that nothing can be kept on disk; empty where nothing is wrong.
   std::string trouble = {};
};

// "GET /v1/fleet". Of plans that are over only the newest.
[[nodiscard]] boost::json::object fleetView( Dispatcher const & dispatcher, Survey const & survey,
                                             Surroundings const & surroundings );
// One of "GET /v1/boxes".
[[nodiscard]] boost::json::object boxView( Survey::BoxLook const & look );
// "GET /v1/boxes/{box}": besides, what was ordered, and what stands in the way.
[[nodiscard]] boost::json::object wholeBoxView( Dispatcher const & dispatcher, Survey::BoxLook const & look );
[[nodiscard]] boost::json::object boxesView( Survey const & survey );

// All there are, the newest first.
[[nodiscard]] std::vector<Plan const *> plansByAge( Dispatcher const & dispatcher );
// "GET /v1/plans"
[[nodiscard]] boost::json::object plansView( Dispatcher const & dispatcher, double now );
[[nodiscard]] boost::json::object planView( Dispatcher const & dispatcher, Plan const & plan, double now );
// "GET /v1/plans/{plan}": besides, what was asked for, and its members.
[[nodiscard]] boost::json::object wholePlanView( Dispatcher const & dispatcher, Plan const & plan, double now );
// "1, 5, 10%"
[[nodiscard]] std::string wavesText( std::vector<WaveSize> const & sizes );

// "GET /v1/history", of the newest records that were asked for, the newest first; `most` of them were.
[[nodiscard]] boost::json::object historyView( Records const & happened, std::size_t most, double now );
// "GET /v1/can-stop"
[[nodiscard]] boost::json::object canStopView( Dispatcher const & dispatcher, std::vector<UnitName> const & units,
                                               double now );
// Of "POST /v1/plans"; no id: of a dry run.
[[nodiscard]] boost::json::object layoutView( std::string const & id, Layout const & layout );
[[nodiscard]] boost::json::array unitsView( std::vector<UnitName> const & units );
[[nodiscard]] boost::json::array textsView( std::vector<std::string> const & texts );

// A number, and a time: without an exponent where it is whole, as people read it, too.
[[nodiscard]] boost::json::value numberView( double number );

}  // namespace Fleet
