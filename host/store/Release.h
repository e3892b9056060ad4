// Gives back the links that a maintd which does not run any more holds down: from the store and the kernel alone.
//
// Only links that maintd took down are set up, found by the index that they had in this boot of the machine, whatever
// they are called by now. Each step is on record before it is made, as in links/LinkControl.h, so that the next maintd
// goes on from there: a link that was given back is left alone for as long as it has an error-disable entry.
//
// Of a damaged store it reads what can be read, and writes nothing; a maintd does not start with such a store either.
// Where a whole one cannot be written no link is touched: the next maintd would take each down again.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "links/LinkSwitch.h"

namespace Host {

struct ReleaseRequest {
   std::string store;               // path of its file
   std::vector<std::string> intfs;  // by name; all where there are none
   std::string boot;                // identity of this boot of the machine
   bool listOnly = false;           // only name, a line each, those that would be set up; nothing is touched
};

// A line for each link on `out`, for people; trouble on `err`. 0 when all is done that is to be done; 1 when a link
// could not be set up, is not known as one that is held, or nothing could be read.
[[nodiscard]] int release( ReleaseRequest const & request, Service::LinkSwitch & links, std::ostream & out,
                           std::ostream & err );

}  // namespace Host
