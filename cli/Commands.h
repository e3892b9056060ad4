// The commands of maintctl. Each returns the program's exit status.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/Client.h"

namespace Cli {

enum ExitStatus : int {
   done = 0,
   failed = 1,
   usage = 2,
   deadlinePassed = 3,
   refused = 4,
   notReached = 5,
};

struct Options {
   bool json = false;                     // answers for programs instead of tables
   bool all = false;                      // of status: every interface, and not only the worst
   bool wait = false;                     // follow an enter or exit to its end
   std::optional<double> timeoutSeconds;  // of --wait; absent: for ever
   std::vector<std::string> without;      // of enter: interfaces to leave out of the proof
   bool dryRun = false;                   // of enter: only say what it would do
   bool yes = false;                      // of enter: although a guard warns
};

// Of one unit, or of all where its name is empty.
int status( Client const & client, Options const & options, std::string const & unit );
int units( Client const & client, Options const & options );
int interfaces( Client const & client, Options const & options );
// `done` when it is ready, `failed` when it is not or there is no such unit.
int ready( Client const & client, Options const & options, std::string const & unit );
int explain( Client const & client, Options const & options, std::string const & interface );
int enter( Client const & client, Options const & options, std::string const & unit );
int exit( Client const & client, Options const & options, std::string const & unit );
int reload( Client const & client, Options const & options );
// A record as JSON, or the names of what is below the path.
int get( Client const & client, Options const & options, std::string const & path );
int dump( Client const & client );

struct ReportOptions {
   std::optional<uint32_t> generation;  // absent: the unit's present window, or its last
   std::string htmlFile;                // empty: text on standard output
   bool json = false;
};
int report( Client const & client, ReportOptions const & options, std::string const & unit );

struct RecordOptions {
   std::string file;               // "-": standard output
   std::optional<double> seconds;  // absent: until it is interrupted
   bool force = false;             // over a file that is there
};
// What happens on the box, as a scenario for maintsim. `done` also when it is interrupted.
int record( Client const & client, RecordOptions const & options );

struct WatchOptions {
   std::string unit;  // empty: all
   double intervalSeconds = 1;
   std::optional<uint32_t> pictures;  // then end; none: until somebody leaves
};
// A live view where standard output is a terminal, else lines.
int watch( Client const & client, WatchOptions const & options );

// What maintd does itself, without a daemon: its output and exit status are this program's, so these only return where
// it cannot be run.
int checkConfig( std::string const & file );

struct ReleaseOptions {
   std::vector<std::string> interfaces;
   bool all = false;   // in place of them
   std::string state;  // maintd's directory for it; empty: its default
};
// Sets up the links that a maintd that is dead holds down.
int release( ReleaseOptions const & options );

// The address from which whoever runs this is connected, empty where it is no remote session.
[[nodiscard]] std::string sessionAddress();

// JSON as it came.
void printJson( Answer const & answer );
// Says on standard error, in one line, why a command does not succeed; returns `status`.
int complain( std::string const & what, ExitStatus status = failed );
// The same of an answer other than 200; of a refusal, each reason on a line of its own.
int complain( Answer const & answer );

}  // namespace Cli
