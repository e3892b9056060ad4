#include "ConfigFile.h"

#include "files/FileText.h"

namespace Host {

Service::Config::Config readConfig( std::string const & file ) {
   return Service::Config::parse( fileText( file ), file );
}

}  // namespace Host
