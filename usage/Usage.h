// What is wrong with a command line, in a sentence for whoever typed it, and what was probably meant.
//
// Knows only the declared commands and options; what a value must be, its own check says.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace Usage {

// "there is no command \"statsu\"; did you mean \"status\"?"
[[nodiscard]] std::string fault( CLI::App const & app, CLI::ParseError const & error );

// Prints what was asked for, as with --help, and returns 0; or says on standard error what is wrong, and how to learn
// more, and returns 2.
int ended( CLI::App const & app, CLI::ParseError const & error );

// What somebody wrote, between quotes: without control characters, and no longer than fits into a sentence.
[[nodiscard]] std::string quoted( std::string const & text );

// Checks, empty where nothing is wrong. A name that is empty is a variable that was not set.
[[nodiscard]] std::string nameFault( std::string const & name, std::size_t mostBytes );

// A duration with its units, or a bare number of seconds. Throws CLI::ValidationError.
[[nodiscard]] double seconds( std::string const & option, std::string const & text );
// A time on a virtual clock, a bare number. Throws CLI::ValidationError.
[[nodiscard]] double clockSeconds( std::string const & option, std::string const & text );
// A whole number from `least` to `most`. Throws CLI::ValidationError.
[[nodiscard]] unsigned long wholeNumber( std::string const & option, std::string const & text, unsigned long least,
                                         unsigned long most );

}  // namespace Usage
