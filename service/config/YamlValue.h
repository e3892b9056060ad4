// A YAML document as the configuration reads it: mappings, lists and plain texts that know where they stand in the
// file.
//
// Values are made for one reading of one file and live no longer. Every reader below adds a Problem and returns nothing
// when the value is not what it should be, so the caller goes on with the next field and the operator gets all
// problems at once. What the fields mean is not known here.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <yaml-cpp/yaml.h>

#include "config/Config.h"

namespace Service::Config {

// Counted from 1, columns in bytes.
struct Position {
   int line = 1;
   int column = 1;
};

using Problems = std::vector<Problem>;

// Line ends, tabs and all other ASCII characters that do not print.
[[nodiscard]] bool isControl( char c );

// The text may quote keys and names of the file. Control characters in it become question marks, so that a problem
// stays one line.
void addProblem( Problems & problems, Position at, std::string text );

struct Value {
   YAML::Node node;
   Position at;     // where the value stands; for one that is left empty, the same as owner
   Position owner;  // the key that gives it, or the list that holds it: where something missing in it is reported
};

// One "key: value" of a mapping.
struct Entry {
   std::string key;
   Position at;
   Value value;
};

// The one document in the text; a document that is empty or absent is a null value. Throws YAML::Exception with the
// place where the text stops being YAML.
[[nodiscard]] Value documentOf( std::string const & text, Problems & problems );

// Where and why the text, of which documentOf() threw, is no YAML.
void addSyntaxProblem( Problems & problems, YAML::Exception const & fault, std::string const & text );

// The entries of a mapping in file order; a key given twice is a problem, and both entries are returned.
[[nodiscard]] std::optional<std::vector<Entry>> entriesOf( Value const & value, Problems & problems );

[[nodiscard]] std::optional<std::vector<Value>> itemsOf( Value const & value, Problems & problems );

[[nodiscard]] std::optional<std::string> textOf( Value const & value, Problems & problems );

[[nodiscard]] std::optional<bool> booleanOf( Value const & value, Problems & problems );

// "; did you mean 'threshold'?" where one of the names is nearly the given one, else empty.
[[nodiscard]] std::string suggestion( std::string_view given, std::span<std::string_view const> names );
[[nodiscard]] std::string suggestion( std::string_view given, std::span<std::string const> names );

}  // namespace Service::Config
