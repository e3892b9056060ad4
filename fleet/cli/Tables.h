// The owner's answers as people read them: first what is waited for, then what else wants to be seen.
//
// Take the answers as they came.
#pragma once

#include <ostream>
#include <string>

#include "tables/Members.h"
#include "tables/Shape.h"

namespace Fleet {

// `boxes`: the answer to GET /v1/boxes; null where nothing is out, and it was not asked for.
void printFleet( std::ostream & out, Cli::Object const & fleet, Cli::Object const * boxes );
void printPlan( std::ostream & out, Cli::Object const & plan, double now );
void printBox( std::ostream & out, Cli::Object const & box, double now );
void printHistory( std::ostream & out, Cli::Object const & answer );
// Of the answer to GET /v1/plans where they are "plans", and else to GET /v1/boxes; each once.
void printNames( std::ostream & out, std::string const & what, Cli::Object const & answer );
void printCanStop( std::ostream & out, Cli::Object const & answer );
// What a plan has become, or would.
void printLayout( std::ostream & out, Cli::Object const & answer );

// What an answer must have to be read by these.
extern Cli::Shape const fleetShape;
extern Cli::Shape const boxesShape;
extern Cli::Shape const boxShape;
extern Cli::Shape const planShape;
extern Cli::Shape const plansShape;
extern Cli::Shape const historyShape;
extern Cli::Shape const canStopShape;
extern Cli::Shape const layoutShape;
extern Cli::Shape const anyShape;  // of answers of which nothing is read

}  // namespace Fleet
