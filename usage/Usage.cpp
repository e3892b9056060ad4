#include "usage/Usage.h"

#include <algorithm>
#include <charconv>
#include <iostream>

#include "kel/NearMiss.h"
#include "kel/ReadDuration.h"
#include "report/Readable.h"

namespace Usage {

namespace {

// The library says some things in texts only, such as "--a requires --b".
struct Two {
   std::string first;
   std::string second;
};
std::optional<Two> around( std::string const & text, std::string const & word ) {
   std::size_t const at = text.find( word );
   if( at == std::string::npos ) return std::nullopt;
   return Two{ text.substr( 0, at ), text.substr( at + word.size() ) };
}

std::vector<std::string> commandsOf( CLI::App const & app ) {
   std::vector<std::string> names;
   for( auto const * const command : app.get_subcommands( []( CLI::App const * ) { return true; } ) )
      names.push_back( command->get_name() );
   return names;
}

void addOptionsOf( CLI::App const & app, std::vector<std::string> & names ) {
   for( auto const * const option : app.get_options() ) {
      for( std::string const & name : option->get_lnames() ) names.push_back( "--" + name );
   }
}

// What somebody has typed that no command and no option takes.
std::string unexpected( CLI::App const & app, CLI::App const & command, std::string const & extra ) {
   bool const isOption = extra.starts_with( '-' ) && extra.size() > 1;
   std::string const name = isOption ? extra.substr( 0, extra.find( '=' ) ) : extra;
   std::string const commandLine = app.get_name() + ( &command == &app ? "" : " " + command.get_name() );
   if( isOption ) {
      std::vector<std::string> options;
      addOptionsOf( command, options );
      if( &command != &app ) addOptionsOf( app, options );
      std::string const none = &command == &app ? "there is no option " : commandLine + " has no option ";
      return none + quoted( name ) + Kel::didYouMean( name, options );
   }
   auto const commands = commandsOf( app );
   if( &command == &app && !commands.empty() )
      return "there is no command " + quoted( name ) + Kel::didYouMean( name, commands );
   return commandLine + " has no use for " + quoted( name );
}

// "maintctl enter UNIT"
std::string synopsis( CLI::App const & app, CLI::App const & command ) {
   std::string text = app.get_name() + ( &command == &app ? "" : " " + command.get_name() );
   for( auto const * const option : command.get_options() ) {
      if( option->get_positional() && option->get_required() ) text += " " + option->get_name();
   }
   return text;
}

std::string missing( CLI::App const & app, CLI::App const & command, std::string const & what ) {
   for( auto const * const option : command.get_options() ) {
      if( !option->get_required() || option->count() > 0 ) continue;
      return command.get_name() + " needs " + option->get_name() + ", " + option->get_description() + ": " +
             synopsis( app, command );
   }
   auto const wanted = around( what, " is required" );
   std::string const needed = wanted ? wanted->first : "something";
   return &command == &app ? needed + " is missing" : command.get_name() + " needs " + needed;
}

// A command, or an option of it, that has not been given as it must be.
std::string required( CLI::App const & app, CLI::App const & command, std::string const & what ) {
   auto const extras = app.remaining( true );
   if( !extras.empty() && &command == &app ) return unexpected( app, command, extras.front() );
   if( &command != &app ) return missing( app, command, what );
   return commandsOf( app ).empty() ? missing( app, command, what )
                                    : "which command? They are: " + Kel::listed( commandsOf( app ), 100 );
}

std::string mismatch( std::string const & text ) {
   std::string name = text.substr( 0, text.find_first_of( ": " ) );
   // "--a: At Most 1 required but received 2", "Expected exactly 1 arguments to --a, got 2"
   auto received = around( text, " required but received " );
   if( auto const of = around( text, " arguments to " ) ) {
      received = around( of->second, ", got " );
      if( received ) name = received->first;
   }
   if( received && received->second != "0" ) return name + " is given more than once";
   bool const flag = text.find( "flag" ) != std::string::npos;
   return name + ( flag ? " takes no value" : " needs a value" );
}

// A check has said it, and the library has put the option's name before it.
std::string invalid( std::string const & text ) {
   std::size_t const colon = text.find( ": " );
   bool const named = colon != std::string::npos && text.find( ' ' ) > colon;
   return named ? text.substr( 0, colon ) + " " + text.substr( colon + 2 ) : text;
}

}  // namespace

std::string quoted( std::string const & text ) {
   constexpr std::size_t most = 60;
   std::string clean = Report::clipped( text, most );
   std::ranges::replace_if(
      clean, []( char c ) { return static_cast<unsigned char>( c ) < 0x20 || c == 0x7f; }, '?' );
   return "\"" + clean + "\"";
}

std::string fault( CLI::App const & app, CLI::ParseError const & error ) {
   std::string const text = error.what();
   auto const given = app.get_subcommands();
   CLI::App const & command = given.empty() ? app : *given.front();
   if( dynamic_cast<CLI::ValidationError const *>( &error ) ) return invalid( text );
   if( dynamic_cast<CLI::RequiredError const *>( &error ) ) return required( app, command, text );
   if( dynamic_cast<CLI::ExtrasError const *>( &error ) ) {
      auto const extras = app.remaining( true );
      if( !extras.empty() ) return unexpected( app, command, extras.front() );
   }
   if( auto const two = around( text, " requires " ) ) return two->first + " only goes with " + two->second;
   if( auto const two = around( text, " excludes " ) )
      return two->first + " and " + two->second + " do not go together";
   if( dynamic_cast<CLI::ArgumentMismatch const *>( &error ) ) return mismatch( text );
   if( auto const two = around( text, "Could not convert: " ) ) {
      auto const value = around( two->second, " = " );
      if( value ) return value->first + " cannot be " + quoted( value->second );
   }
   return "this command line is not understood";
}

int ended( CLI::App const & app, CLI::ParseError const & error ) {
   // --help arrives as an exception too, with status 0.
   if( error.get_exit_code() == 0 ) return app.exit( error );
   auto const given = app.get_subcommands();
   std::string const command = app.get_name() + ( given.empty() ? "" : " " + given.front()->get_name() );
   std::cerr << app.get_name() << ": " << fault( app, error ) << "\n" << command << " --help says more\n";
   return 2;
}

std::string nameFault( std::string const & name, std::size_t mostBytes ) {
   if( name.empty() ) return "is empty";
   if( name.size() > mostBytes )
      return "is longer than any name may be: " + std::to_string( name.size() ) + " bytes, and " +
             std::to_string( mostBytes ) + " are the most";
   auto const isControl = []( char c ) { return static_cast<unsigned char>( c ) < 0x20 || c == 0x7f; };
   return std::ranges::any_of( name, isControl ) ? "has control characters: " + quoted( name ) : "";
}

double seconds( std::string const & option, std::string const & text ) {
   bool const bare =
      !text.empty() && std::ranges::all_of( text, []( char c ) { return ( c >= '0' && c <= '9' ) || c == '.'; } );
   auto const read = Kel::readDuration( bare ? text + "s" : text );
   if( !read.reason.empty() ) throw CLI::ValidationError( option, read.reason );
   return read.seconds;
}

double clockSeconds( std::string const & option, std::string const & text ) {
   constexpr double clockEnd = 1e12;
   double number = -1;
   auto const read = std::from_chars( text.data(), text.data() + text.size(), number );
   bool const whole = read.ec == std::errc() && read.ptr == text.data() + text.size();
   if( whole && number >= 0 && number <= clockEnd ) return number;
   throw CLI::ValidationError( option, "is a number of seconds from 0 to 1e12, not " + quoted( text ) );
}

unsigned long wholeNumber( std::string const & option, std::string const & text, unsigned long least,
                           unsigned long most ) {
   unsigned long number = 0;
   auto const read = std::from_chars( text.data(), text.data() + text.size(), number );
   bool const whole = read.ec == std::errc() && read.ptr == text.data() + text.size();
   if( whole && number >= least && number <= most ) return number;
   throw CLI::ValidationError( option, "is a whole number from " + std::to_string( least ) + " to " +
                                          std::to_string( most ) + ", not " + quoted( text ) );
}

}  // namespace Usage
