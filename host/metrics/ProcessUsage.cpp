#include "metrics/ProcessUsage.h"

#include <sys/resource.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace Host {

namespace {

using prometheus::MetricFamily;
using prometheus::MetricType;

MetricFamily single( char const * name, MetricType type, char const * help, double value ) {
   MetricFamily family{ name, help, type, { {} } };
   auto & metric = family.metric.front();
   ( type == MetricType::Counter ? metric.counter.value : metric.gauge.value ) = value;
   return family;
}

double seconds( clockid_t clock ) {
   timespec now{};
   clock_gettime( clock, &now );
   return static_cast<double>( now.tv_sec ) + static_cast<double>( now.tv_nsec ) * 1e-9;
}

// Of /proc/self/stat (proc(5)), what follows the name of the program, which may have spaces and brackets in it.
struct Stat {
   double startTicks = 0;
   double virtualBytes = 0;
   double residentPages = 0;
};
std::optional<Stat> ownStat() {
   std::ifstream file( "/proc/self/stat" );
   std::string const text( std::istreambuf_iterator<char>( file ), {} );
   auto const nameEnd = text.rfind( ')' );
   if( nameEnd == std::string::npos ) return std::nullopt;
   std::istringstream fields( text.substr( nameEnd + 1 ) );
   constexpr int before = 19;  // the state is field 3, the time of the start field 22
   std::string passed;
   for( int i = 0; i < before; ++i ) fields >> passed;
   Stat stat;
   fields >> stat.startTicks >> stat.virtualBytes >> stat.residentPages;
   return fields ? std::optional( stat ) : std::nullopt;
}

std::optional<double> openDescriptors() {
   std::error_code error;
   double count = 0;
   std::filesystem::directory_iterator entry( "/proc/self/fd", error );
   for( ; !error && entry != std::filesystem::directory_iterator(); entry.increment( error ) ) ++count;
   // The one by which they are counted is gone again.
   return error ? std::nullopt : std::optional( count - 1 );
}

}  // namespace

std::vector<MetricFamily> processUsage() {
   std::vector<MetricFamily> found;
   found.push_back( single( "process_cpu_seconds_total", MetricType::Counter, "Processor time of the process.",
                            seconds( CLOCK_PROCESS_CPUTIME_ID ) ) );
   if( auto const stat = ownStat() ) {
      double const started = stat->startTicks / static_cast<double>( ::sysconf( _SC_CLK_TCK ) );
      double const pageBytes = static_cast<double>( ::sysconf( _SC_PAGESIZE ) );
      found.push_back( single( "process_start_time_seconds", MetricType::Gauge, "When it was started, in Unix time.",
                               seconds( CLOCK_REALTIME ) - seconds( CLOCK_BOOTTIME ) + started ) );
      found.push_back( single( "process_resident_memory_bytes", MetricType::Gauge, "Memory that it has in use.",
                               stat->residentPages * pageBytes ) );
      found.push_back( single( "process_virtual_memory_bytes", MetricType::Gauge, "Memory that it has mapped.",
                               stat->virtualBytes ) );
   }
   if( auto const open = openDescriptors() )
      found.push_back( single( "process_open_fds", MetricType::Gauge, "File descriptors that it has open.", *open ) );
   rlimit limit{};
   if( ::getrlimit( RLIMIT_NOFILE, &limit ) == 0 && limit.rlim_cur != RLIM_INFINITY )
      found.push_back( single( "process_max_fds", MetricType::Gauge, "File descriptors that it may have open.",
                               static_cast<double>( limit.rlim_cur ) ) );
   return found;
}

}  // namespace Host
