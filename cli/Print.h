// What people read: tables, and the views of units and interfaces made of them.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace Cli {

// Columns as wide as their widest cell, two blanks apart; the last column is not padded.
class Table {
 public:
   explicit Table( std::vector<std::string> headings ) : rows_{ std::move( headings ) } {}
   void row( std::vector<std::string> cells ) { rows_.push_back( std::move( cells ) ); }
   void print( std::ostream & out, std::string const & indent = "" ) const;

 private:
   std::vector<std::vector<std::string>> rows_;
};

// Readers of the daemon's answers; an absent or null member reads as empty.
[[nodiscard]] std::string text( boost::json::object const & object, char const * member );
[[nodiscard]] double number( boost::json::object const & object, char const * member );

void printUnits( std::ostream & out, boost::json::array const & units );
void printInterfaces( std::ostream & out, boost::json::array const & interfaces, std::string const & indent = "" );
// Each unit with its interfaces, and what it is waiting for.
void printStatus( std::ostream & out, boost::json::array const & units );

}  // namespace Cli
