#include "simulate/Protocol.h"

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <charconv>

namespace Fleet {

namespace {

constexpr std::string_view lineEnding = "\r\n";
constexpr std::size_t mostLineBytes = 64 * 1024;  // more than the greeting of any broker
constexpr std::size_t mostBodyBytes = 8 * 1024 * 1024;

std::vector<std::string_view> wordsOf( std::string_view line ) {
   std::vector<std::string_view> words;
   while( true ) {
      std::size_t const begin = line.find_first_not_of( ' ' );
      if( begin == std::string_view::npos ) return words;
      line.remove_prefix( begin );
      words.push_back( line.substr( 0, line.find( ' ' ) ) );
      line.remove_prefix( words.back().size() );
   }
}

std::size_t sizeFrom( std::string_view word ) {
   std::size_t size = 0;
   auto const read = std::from_chars( word.data(), word.data() + word.size(), size );
   if( read.ec != std::errc() || read.ptr != word.data() + word.size() || size > mostBodyBytes ) {
      throw ProtocolFault( "a letter of \"" + std::string( word ) + "\" bytes" );
   }
   return size;
}

}  // namespace

std::vector<ProtocolReader::Message> ProtocolReader::take( std::string_view bytes ) {
   held_ += bytes;
   done_ = 0;
   std::vector<Message> messages;
   while( next( messages ) ) {
   }
   held_.erase( 0, done_ );
   // Tens of thousands of readers are not to keep room for the longest letter that each of them has seen.
   if( held_.empty() ) held_.shrink_to_fit();
   return messages;
}

bool ProtocolReader::next( std::vector<Message> & into ) {
   std::string_view const rest = std::string_view( held_ ).substr( done_ );
   std::size_t const end = rest.find( lineEnding );
   if( end == std::string_view::npos ) {
      if( rest.size() > mostLineBytes ) throw ProtocolFault( "a line without end" );
      return false;
   }
   std::string_view const line = rest.substr( 0, end );
   std::size_t const lineBytes = end + lineEnding.size();
   if( line.starts_with( "MSG " ) || line.starts_with( "HMSG " ) ) return letter( line, lineBytes, into );
   done_ += lineBytes;
   auto const after = [&]( std::size_t skipped ) { return std::string( line.substr( skipped ) ); };
   using enum Message::Kind;
   if( line == "PING" ) {
      into.push_back( { ping, {}, {}, {} } );
   } else if( line == "PONG" ) {
      into.push_back( { pong, {}, {}, {} } );
   } else if( line.starts_with( "INFO " ) ) {
      into.push_back( { info, after( 5 ), {}, {} } );
   } else if( line.starts_with( "-ERR " ) ) {
      into.push_back( { error, after( 5 ), {}, {} } );
   } else if( line != "+OK" ) {
      throw ProtocolFault( "\"" + after( 0 ).substr( 0, 40 ) + "\"" );
   }
   return true;
}

// "MSG subject number [answer-to] bytes", "HMSG subject number [answer-to] header-bytes bytes", and then those.
bool ProtocolReader::letter( std::string_view line, std::size_t lineBytes, std::vector<Message> & into ) {
   auto const words = wordsOf( line );
   bool const headed = line.starts_with( 'H' );
   if( words.size() < ( headed ? 5u : 4u ) ) throw ProtocolFault( std::string( line ) );
   std::size_t const bytes = sizeFrom( words.back() );
   std::size_t const headerBytes = headed ? sizeFrom( words[words.size() - 2] ) : 0;
   if( headerBytes > bytes ) throw ProtocolFault( std::string( line ) );
   std::size_t const from = done_ + lineBytes;
   if( held_.size() < from + bytes + lineEnding.size() ) return false;
   into.push_back( { Message::Kind::letter, held_.substr( from + headerBytes, bytes - headerBytes ),
                     std::string( words[1] ), held_.substr( from, headerBytes ) } );
   done_ = from + bytes + lineEnding.size();
   return true;
}

std::string_view headerOf( ProtocolReader::Message const & letter, std::string_view name ) {
   std::string_view rest = letter.headers;
   while( !rest.empty() ) {
      std::size_t const end = std::min( rest.find( lineEnding ), rest.size() );
      std::string_view const line = rest.substr( 0, end );
      rest.remove_prefix( std::min( end + lineEnding.size(), rest.size() ) );
      if( !line.starts_with( name ) || line.substr( name.size(), 1 ) != ":" ) continue;
      std::string_view const value = line.substr( name.size() + 1 );
      return value.substr( std::min( value.find_first_not_of( ' ' ), value.size() ) );
   }
   return {};
}

std::string connectText( std::string const & name, std::string const & publicKey, std::string const & signature,
                         bool tls ) {
   boost::json::object said{ { "verbose", false }, { "pedantic", false }, { "tls_required", tls },
                             { "name", name },     { "lang", "c++" },     { "version", "1" },
                             { "protocol", 1 },    { "headers", true },   { "no_responders", true } };
   if( !publicKey.empty() ) {
      said["nkey"] = publicKey;
      said["sig"] = signature;
   }
   return "CONNECT " + boost::json::serialize( said ) + "\r\n";
}

std::string subscribeText( std::string const & subject, int number ) {
   return "SUB " + subject + " " + std::to_string( number ) + "\r\n";
}

std::string publishText( std::string const & subject, std::string const & answerTo, std::string_view body ) {
   std::string text = "PUB " + subject + " " + ( answerTo.empty() ? "" : answerTo + " " );
   text += std::to_string( body.size() ) + "\r\n";
   text += body;
   return text + "\r\n";
}

}  // namespace Fleet
