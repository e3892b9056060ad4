#include "cli/Verbs.h"

#include <algorithm>
#include <iostream>
#include <sstream>

#include "cli/Tables.h"
#include "kel/QuantityText.h"
#include "tables/Printable.h"
#include "tables/Words.h"

namespace Fleet {

using ::Cli::Answer;
using ::Cli::Client;
using ::Cli::Object;
using ::Cli::Target;

namespace {

Client clientOf( VerbOptions const & options ) {
   return Client( options.socket, options.socket,
                  { "maintfleet controller",
                    "Start it with: maintfleet controller --inventory FILE   (systemctl start maintfleet-controller "
                    "where it is a service)" } );
}

int complain( std::string const & what, VerbStatus status ) {
   std::cerr << "maintfleet: " << ::Cli::printable( what ) << "\n";
   return status;
}

int complainOf( Answer const & answer ) {
   VerbStatus const status = answer.status == 409 ? verbRefused : verbFailed;
   auto const reasons = ::Cli::texts( answer.object(), "why" );
   if( reasons.empty() ) return complain( answer.error(), status );
   for( std::string const & reason : reasons ) complain( reason, status );
   return status;
}

// What cannot be reached is said with what to do about it.
template<class Verb>
int reaching( VerbOptions const & options, Verb const & verb ) {
   try {
      return verb( clientOf( options ) );
   } catch( ::Cli::NotReached const & error ) {
      complain( error.what(), verbNotReached );
      if( !error.advice().empty() ) std::cerr << error.advice() << "\n";
      return verbNotReached;
   } catch( ::Cli::WrongAnswer const & error ) {
      return complain( "what answers at " + options.socket +
                          " is no maintfleet controller, or one of another version: in its answer, " + error.what(),
                       verbNotReached );
   }
}

// One answer: as it came for programs, through `print` for people; all of it or nothing.
template<class Print>
int shown( Answer const & answer, VerbOptions const & options, Print const & print ) {
   if( !answer.ok() ) return complainOf( answer );
   std::ostringstream out;
   if( options.json ) {
      out << answer.text;
   } else {
      print( out, answer.object() );
   }
   std::cout << out.str();
   return verbDone;
}

std::string spanOf( double seconds ) { return Kel::numberText( seconds, 3 ) + "s"; }

// A box, or a unit of one.
void addName( Target & target, std::string const & name ) {
   target.parameter( name.find( '/' ) == std::string::npos ? "box" : "unit", name );
}

Target planTarget( PlanOptions const & plan ) {
   Target target{ "plans" };
   for( std::string const & box : plan.boxes ) target.parameter( "box", box );
   for( std::string const & label : plan.labels ) target.parameter( "label", label );
   auto const text = [&]( char const * name, std::string const & value ) {
      if( !value.empty() ) target.parameter( name, value );
   };
   auto const span = [&]( char const * name, std::optional<double> seconds ) {
      if( seconds ) target.parameter( name, spanOf( *seconds ) );
   };
   text( "unit", plan.unit );
   if( plan.all ) target.parameter( "all", "1" );
   text( "waves", plan.waves );
   span( "soak", plan.soakSeconds );
   span( "deadline", plan.deadlineSeconds );
   text( "at-deadline", plan.atDeadline );
   span( "stay", plan.staySeconds );
   if( plan.dryRun ) target.parameter( "dry-run", "1" );
   return target;
}

// A request of which is told what it has done.
int asked( VerbOptions const & options, Target const & target, std::string const & done ) {
   return reaching( options, [&]( Client const & client ) {
      return shown( client.post( target, anyShape ), options,
                    [&]( std::ostream & out, Object const & ) { out << done << "\n"; } );
   } );
}

int statusOfFleet( Client const & client, VerbOptions const & options ) {
   Answer const fleet = client.get( { "fleet" }, fleetShape );
   if( !fleet.ok() || options.json ) return shown( fleet, options, []( auto &, auto & ) {} );
   Object const * const counts = ::Cli::inner( fleet.object(), "counts" );
   // Of ten thousand boxes that is a long list, for nothing where all are in service.
   std::optional<Answer> boxes;
   if( ::Cli::number( *counts, "out" ).value_or( 0 ) > 0 ) boxes = client.get( { "boxes" }, boxesShape );
   bool const known = !boxes || boxes->ok();
   int const status = shown( fleet, options, [&]( std::ostream & out, Object const & answer ) {
      printFleet( out, answer, boxes && known ? &boxes->object() : nullptr );
   } );
   return known ? status : complainOf( *boxes );
}

}  // namespace

int askPlan( VerbOptions const & options, PlanOptions const & plan ) {
   return reaching( options, [&]( Client const & client ) {
      return shown( client.post( planTarget( plan ), layoutShape ), options, printLayout );
   } );
}

int askReturn( VerbOptions const & options, std::vector<std::string> const & names ) {
   Target target{ "return" };
   for( std::string const & name : names ) addName( target, name );
   return reaching( options, [&]( Client const & client ) {
      return shown( client.post( target, anyShape ), options, []( std::ostream & out, Object const & answer ) {
         out << "ordered back: " << ::Cli::namesText( answer, "units" ) << "\n";
      } );
   } );
}

int askStatus( VerbOptions const & options, std::string const & name ) {
   return reaching( options, [&]( Client const & client ) {
      if( name.empty() ) return statusOfFleet( client, options );
      auto const now = static_cast<double>( std::time( nullptr ) );
      Answer const box = client.get( { "boxes", name }, boxShape );
      if( box.status != 404 )
         return shown( box, options, [&]( std::ostream & out, Object const & it ) { printBox( out, it, now ); } );
      Answer const plan = client.get( { "plans", name }, planShape );
      // What was probably meant is a box: plans have numbers.
      if( plan.status == 404 ) return complainOf( name.starts_with( "plan-" ) ? plan : box );
      return shown( plan, options, [&]( std::ostream & out, Object const & it ) { printPlan( out, it, now ); } );
   } );
}

int askCanStop( VerbOptions const & options, std::vector<std::string> const & names, std::string const & unit ) {
   Target target{ "can-stop" };
   for( std::string const & name : names ) addName( target, name );
   if( !unit.empty() ) target.parameter( "unit", unit );
   return reaching( options, [&]( Client const & client ) {
      Answer const answer = client.get( target, canStopShape );
      int const status = shown( answer, options, printCanStop );
      if( status != verbDone ) return status;
      return ::Cli::yes( answer.object(), "canStop" ) ? static_cast<int>( verbDone ) : static_cast<int>( verbFailed );
   } );
}

int askHistory( VerbOptions const & options, HistoryOptions const & of ) {
   Target target{ "history" };
   for( auto const & [name, value] : { std::pair( "box", &of.box ), { "unit", &of.unit }, { "plan", &of.plan } } ) {
      if( !value->empty() ) target.parameter( name, *value );
   }
   if( of.agoSeconds ) {
      double const since = std::max( 0.0, static_cast<double>( std::time( nullptr ) ) - *of.agoSeconds );
      target.parameter( "since", std::to_string( static_cast<long long>( since ) ) );
   }
   return reaching( options, [&]( Client const & client ) {
      return shown( client.get( target, historyShape ), options, printHistory );
   } );
}

int askNames( VerbOptions const & options, std::string const & what ) {
   return reaching( options, [&]( Client const & client ) {
      bool const plans = what == "plans";
      return shown( client.get( { plans ? "plans" : "boxes" }, plans ? plansShape : boxesShape ), options,
                    [&]( std::ostream & out, Object const & answer ) { printNames( out, what, answer ); } );
   } );
}

int askPlanChange( VerbOptions const & options, std::string const & plan, std::string const & what,
                   std::vector<std::string> const & without ) {
   Target target{ "plans", plan, what };
   for( std::string const & unit : without ) target.parameter( "without", unit );
   std::string const done = what == "pause" ? "is paused" : what == "cancel" ? "is cancelled" : "goes on";
   return asked( options, target, ::Cli::printable( plan ) + " " + done );
}

int askBrake( VerbOptions const & options, std::string const & site, bool on ) {
   Target target{ on ? "brake" : "release" };
   if( !site.empty() ) target.parameter( "site", site );
   return asked(
      options, target,
      ( site.empty() ? "the brake of all sites" : "the brake of site " + ::Cli::printable( site ) ) +
         ( on ? " is on: no plan goes on there" : " is off; plans that it has stopped wait to be resumed" ) );
}

int askAccept( VerbOptions const & options ) {
   return asked( options, { "accept" }, "the books are accepted as they are" );
}

}  // namespace Fleet
