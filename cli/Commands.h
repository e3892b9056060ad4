// The commands of maintctl. Each returns the program's exit status.
#pragma once

#include <optional>
#include <string>

#include "Client.h"

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
   bool wait = false;                     // follow an enter or exit to its end
   std::optional<double> timeoutSeconds;  // of --wait; absent: for ever
};

int status( Client const & client, Options const & options );
int units( Client const & client, Options const & options );
int interfaces( Client const & client, Options const & options );
int enter( Client const & client, Options const & options, std::string const & unit );
int exit( Client const & client, Options const & options, std::string const & unit );
int get( Client const & client, std::string const & path );
int dump( Client const & client );

// Says on standard error why a command does not succeed; returns `status`.
int complain( std::string const & what, ExitStatus status = failed );

}  // namespace Cli
