// The maintd of this box, asked over its unix sockets.
//
// A unit that is in service is looked at every few seconds, one that is on its way every second, and seldomer where it
// has thousands of interfaces: to list them all is work for maintd, which has better to do. After a request it is
// looked at anew. Waits for each answer, for two seconds at most.
#pragma once

#include <map>
#include <string>

#include "box/Maintd.h"
#include "client/Client.h"

namespace Fleet {

class MaintdOverHttp final : public Maintd {
 public:
   MaintdOverHttp( std::string controlSocket, std::string readSocket );

   [[nodiscard]] Units units( double now ) override;
   [[nodiscard]] Reply enter( std::string const & unit ) override { return request( unit, "enter" ); }
   [[nodiscard]] Reply exit( std::string const & unit ) override { return request( unit, "exit" ); }

 private:
   void readAll( double now );
   void read( std::string const & unit, double now );
   Reply request( std::string const & unit, std::string const & what );

   Cli::Client const client_;
   Units seen_;
   std::map<std::string, double> due_;  // s, Unix time, when each unit is to be looked at again
   double allDue_ = 0;                  // likewise, which units there are
};

// How a unit stands, from maintd's answer to GET /v1/units/UNIT at `now` (s, Unix time). Throws Cli::WrongAnswer.
[[nodiscard]] Maintd::Unit unitFrom( boost::json::object const & answer, double now );

}  // namespace Fleet
