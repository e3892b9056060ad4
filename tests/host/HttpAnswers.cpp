#include "HttpAnswers.h"

#include <algorithm>
#include <boost/json.hpp>
#include <regex>

#include "ApiBox.h"
#include "http/RequestReader.h"
#include "kel/Assert.h"

namespace Host {

namespace {

std::string message( RequestReader const & reader, HttpAnswer const & answer, bool keepAlive ) {
   return httpHead( answer, keepAlive, 0 ) + ( reader.headOnly() ? "" : answer.body );
}

}  // namespace

std::string answersTo( std::string_view bytes, std::size_t pieceSize, HttpHandler const & handler ) {
   RequestReader reader;
   std::string answers;
   while( reader.state() != RequestReader::State::refused &&
          !( bytes.empty() && reader.state() == RequestReader::State::idle ) ) {
      if( reader.state() == RequestReader::State::complete ) {
         bool const keepAlive = reader.keepAlive();
         answers += message( reader, handler( reader.request() ), keepAlive );
         if( !keepAlive ) return answers;
         reader.next();
         continue;
      }
      if( reader.takeContinue() ) answers += "HTTP/1.1 100 Continue\r\n\r\n";
      if( bytes.empty() ) {
         reader.ended();
         continue;
      }
      auto const room = reader.room();
      KEL_ASSERT( !room.empty() && room.size() <= RequestReader::headMax );
      std::size_t const taken = std::min( { room.size(), pieceSize, bytes.size() } );
      std::copy_n( bytes.begin(), taken, room.begin() );
      bytes.remove_prefix( taken );
      reader.received( taken );
   }
   if( reader.state() == RequestReader::State::refused ) answers += message( reader, reader.refusal(), false );
   return answers;
}

std::string apiAnswersTo( std::string_view bytes ) {
   ApiBox box;
   box.makeUnit();
   return answersTo( bytes, bytes.size(), [&]( HttpRequest const & request ) {
      HttpAnswer answer = box.ask( request );
      if( !answer.body.empty() && std::string_view( answer.contentType ) == "application/json" )
         static_cast<void>( boost::json::parse( answer.body ) );
      return answer;
   } );
}

std::string statuses( std::string const & answers ) {
   static std::regex const line( "HTTP/1\\.1 ([0-9]{3}) [^\r\n]*\r\n" );
   std::string found;
   for( std::sregex_iterator i( answers.begin(), answers.end(), line ); i != std::sregex_iterator(); ++i ) {
      found += ( found.empty() ? "" : " " ) + ( *i )[1].str();
   }
   return found;
}

}  // namespace Host
