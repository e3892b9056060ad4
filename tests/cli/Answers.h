// Answers as maintd gives them and as maintctl gets them: declared structs, through their JSON.
#pragma once

#include <boost/json.hpp>
#include <sstream>
#include <string>

#include "kel/Json.h"
#include "tables/Table.h"
#include "views/Answers.h"
#include "views/WindowAnswer.h"

namespace Cli {

template<class Answer>
Object received( Answer const & answer ) {
   return boost::json::parse( Kel::toJson( Kel::value( answer ) ) ).as_object();
}

// What a printing function of cli/tables makes of an answer.
template<class Print, class Answer>
std::string printed( Print const & print, Answer const & answer ) {
   std::ostringstream out;
   print( out, received( answer ) );
   return out.str();
}

}  // namespace Cli
