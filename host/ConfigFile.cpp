#include "ConfigFile.h"

#include "config/FileText.h"

namespace Host {

Service::Config::Config readConfig( std::string const & file ) {
   return Service::Config::parse( Service::Config::fileText( file ), file );
}

}  // namespace Host
