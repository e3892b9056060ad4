#include "Print.h"

#include <algorithm>
#include <boost/json/serialize.hpp>

#include "kel/QuantityText.h"

namespace Cli {

namespace json = boost::json;

void Table::print( std::ostream & out, std::string const & indent ) const {
   // No row has more cells than the headings. Widths are bytes, so a name that is not ASCII shifts the rest of its
   // line.
   std::vector<std::size_t> widths( rows_.front().size() );
   for( auto const & row : rows_ ) {
      for( std::size_t i = 0; i < row.size(); ++i ) widths[i] = std::max( widths[i], row[i].size() );
   }
   for( auto const & row : rows_ ) {
      out << indent;
      for( std::size_t i = 0; i < row.size(); ++i ) {
         out << row[i];
         if( i + 1 < row.size() ) out << std::string( widths[i] - row[i].size() + 2, ' ' );
      }
      out << "\n";
   }
}

std::string text( json::object const & object, char const * member ) {
   auto const * const value = object.if_contains( member );
   if( !value || value->is_null() ) return "";
   // A text without its quotes; anything else as JSON writes it.
   return value->is_string() ? value->get_string().c_str() : json::serialize( *value );
}

double number( json::object const & object, char const * member ) {
   auto const * const value = object.if_contains( member );
   return value && value->is_number() ? value->to_number<double>() : 0;
}

namespace {

bool has( json::object const & object, char const * member ) {
   auto const * const value = object.if_contains( member );
   return value && !value->is_null();
}

std::string orDash( std::string const & cell ) { return cell.empty() ? "-" : cell; }

std::string rateCell( json::object const & object, char const * member ) {
   // A rate that is not known must not read as one of 0.
   return has( object, member ) ? Kel::rateText( number( object, member ) ) : "-";
}

std::string drainedCell( json::object const & unit ) {
   return text( unit, "drained" ) + " of " + text( unit, "monitored" );
}

}  // namespace

void printUnits( std::ostream & out, json::array const & units ) {
   Table table( { "UNIT", "STATE", "GENERATION", "DRAINED", "NOTE" } );
   for( auto const & value : units ) {
      auto const & unit = value.as_object();
      // Outside maintenance nothing is counted, and "0 of 0" would look like a result.
      bool const served = text( unit, "state" ) == "entering" || text( unit, "state" ) == "inMaintenance";
      table.row( { text( unit, "unit" ), text( unit, "state" ), text( unit, "generation" ),
                   served ? drainedCell( unit ) : "-", orDash( text( unit, "note" ) ) } );
   }
   table.print( out );
}

void printInterfaces( std::ostream & out, json::array const & interfaces, std::string const & indent ) {
   Table table( { "INTERFACE", "LINK", "MONITORING", "IN", "OUT", "THRESHOLD", "SAMPLES", "WAITING FOR" } );
   for( auto const & value : interfaces ) {
      auto const & intf = value.as_object();
      table.row( { text( intf, "interface" ), orDash( text( intf, "operStatus" ) ),
                   orDash( text( intf, "monitoring" ) ), rateCell( intf, "inBitsRate" ),
                   rateCell( intf, "outBitsRate" ), rateCell( intf, "thresholdBitsRate" ),
                   orDash( text( intf, "totalSamples" ) ), orDash( text( intf, "waitingFor" ) ) } );
   }
   table.print( out, indent );
}

void printStatus( std::ostream & out, json::array const & units ) {
   for( auto const & value : units ) {
      auto const & unit = value.as_object();
      out << "unit " << text( unit, "unit" ) << ": " << text( unit, "state" ) << ", generation "
          << text( unit, "generation" ) << "\n";
      if( has( unit, "note" ) ) out << "  " << text( unit, "note" ) << "\n";
      printInterfaces( out, unit.at( "interfaces" ).as_array(), "  " );
      out << "\n";
   }
}

}  // namespace Cli
