#include "simulate/LightConnection.h"

#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/write.hpp>
#include <boost/json/parse.hpp>
#include <utility>

#include "keys/Subjects.h"

namespace Fleet {

namespace asio = boost::asio;

namespace {

// For all of an attempt: with ten thousand others, the broker's processor is what is waited for.
constexpr std::chrono::seconds attemptPatience{ 20 };

using Failure = boost::system::error_code;

}  // namespace

LightConnection::LightConnection( LightNetwork const & network, std::string box, NKey const * key )
   : network_( network ), box_( std::move( box ) ), key_( key ), timer_( network.io ) {
   waitToDial();
}

LightConnection::~LightConnection() { hangUp(); }

template<typename Use>
void LightConnection::onStream( Use use ) {
   if( line_->encrypted ) {
      use( *line_->encrypted );
   } else {
      use( line_->socket );
   }
}

template<typename Handler>
auto LightConnection::guarded( Handler handler ) {
   return [line = line_, handler]( Failure const & failure, auto... rest ) {
      if( !line->over ) handler( failure, rest... );
   };
}

// --- The connection

void LightConnection::waitToDial() {
   line_ = std::make_shared<Line>( network_.io );
   std::uniform_real_distribution<double> part( 0, network_.reconnectSeconds );
   timer_.expires_after( std::chrono::microseconds( static_cast<int64_t>( part( network_.random ) * 1e6 ) ) );
   timer_.async_wait( guarded( [this]( Failure const & failure ) {
      if( !failure ) dial();
   } ) );
}

void LightConnection::dial() {
   state_ = State::dialing;
   timer_.expires_after( attemptPatience );
   timer_.async_wait( guarded( [this]( Failure const & failure ) {
      if( !failure && !connected() ) lost( "the broker takes too long" );
   } ) );
   line_->socket.async_connect( network_.broker, guarded( [this]( Failure const & failure ) {
                                   if( failure ) return lost( failure.message() );
                                   Failure ignored;
                                   line_->socket.set_option( asio::ip::tcp::no_delay( true ), ignored );
                                   readOn();
                                } ) );
}

void LightConnection::hangUp() {
   state_ = State::away;
   letters_.clear();
   timer_.cancel();
   if( !line_ ) return;
   line_->over = true;
   Failure ignored;
   line_->socket.close( ignored );
   line_.reset();
}

void LightConnection::lost( std::string const & why ) {
   hangUp();
   trouble_ = why;
   if( !cutOff_ ) waitToDial();
}

void LightConnection::cutOffIs( bool cutOff ) {
   if( cutOff == cutOff_ ) return;
   cutOff_ = cutOff;
   lost( "cut off" );
}

// --- What is said

void LightConnection::readOn() {
   onStream( [this]( auto & stream ) {
      auto handler = guarded( [this]( Failure const & failure, std::size_t bytes ) {
         // What the broker has said before it hung up tells more.
         if( failure ) return lost( trouble_.empty() ? failure.message() : trouble_ );
         handleRead( { line_->room.data(), bytes } );
      } );
      stream.async_read_some( asio::buffer( line_->room ), std::move( handler ) );
   } );
}

void LightConnection::handleRead( std::string_view bytes ) {
   auto const line = line_;
   try {
      for( auto const & message : line->reader.take( bytes ) ) {
         handle( message );
         if( line->over ) return;
      }
   } catch( std::runtime_error const & fault ) {
      return lost( fault.what() );
   }
   if( !line->inHandshake ) readOn();
}

void LightConnection::handle( ProtocolReader::Message const & message ) {
   switch( message.kind ) {
      case ProtocolReader::Message::Kind::info: return handleGreeting( message.text );
      case ProtocolReader::Message::Kind::ping: return send( "PONG\r\n" );
      case ProtocolReader::Message::Kind::pong:
         state_ = State::up;
         ++connects_;
         trouble_.clear();
         timer_.cancel();
         return;
      case ProtocolReader::Message::Kind::letter: return handleLetter( message );
      case ProtocolReader::Message::Kind::error: trouble_ = message.text; return;
   }
}

// It comes again when the broker has news of itself; that changes nothing here.
void LightConnection::handleGreeting( std::string const & greeting ) {
   if( std::exchange( line_->greeted, true ) ) return;
   Failure failure;
   auto const said = boost::json::parse( greeting, failure );
   if( failure || !said.is_object() ) throw ProtocolFault( "a greeting that cannot be read" );
   auto const * const nonce = said.as_object().if_contains( "nonce" );
   std::string const toSign = nonce && nonce->is_string() ? std::string( nonce->as_string() ) : "";
   if( network_.tls ) {
      startTls( toSign );
   } else {
      introduce( toSign );
   }
}

void LightConnection::startTls( std::string const & nonce ) {
   auto & stream = line_->encrypted.emplace( line_->socket, *network_.tls );
   stream.set_verify_mode( asio::ssl::verify_peer );
   stream.set_verify_callback( asio::ssl::host_name_verification( network_.serverName ) );
   line_->inHandshake = true;
   stream.async_handshake( asio::ssl::stream_base::client, guarded( [this, nonce]( Failure const & failed ) {
                              if( failed ) return lost( failed.message() );
                              line_->inHandshake = false;
                              introduce( nonce );
                              readOn();
                           } ) );
}

void LightConnection::introduce( std::string const & nonce ) {
   std::string const signature = key_ ? key_->signature( nonce ) : "";
   trouble_.clear();
   send( connectText( box_, key_ ? key_->publicText() : "", signature, network_.tls != nullptr ) +
         subscribeText( subjectOf( desiredKey( box_ ) ), 1 ) + subscribeText( readInboxOf( box_ ), 2 ) + "PING\r\n" );
}

void LightConnection::handleLetter( ProtocolReader::Message const & letter ) {
   if( !headerOf( letter, "KV-Operation" ).empty() ) return;
   std::string_view const original = headerOf( letter, "Nats-Subject" );
   std::string_view const subject = original.empty() ? std::string_view( letter.subject ) : original;
   if( !subject.starts_with( keyPrefix ) ) return;
   letters_.push_back( { std::string( subject.substr( keyPrefix.size() ) ), letter.text } );
}

bool LightConnection::put( std::string const & key, std::string const & text ) {
   if( !connected() ) return false;
   send( publishText( subjectOf( key ), "", text ) );
   return true;
}

void LightConnection::read( std::string const & key ) {
   if( connected() ) send( publishText( readSubjectOf( key ), readInboxOf( box_ ), "" ) );
}

void LightConnection::send( std::string const & text ) {
   line_->waiting += text;
   if( line_->writing.empty() ) sendOn();
}

void LightConnection::sendOn() {
   line_->writing = std::exchange( line_->waiting, {} );
   if( line_->writing.empty() ) return;
   onStream( [this]( auto & stream ) {
      auto handler = guarded( [this]( Failure const & failure, std::size_t ) {
         if( failure ) return lost( failure.message() );
         sendOn();
      } );
      asio::async_write( stream, asio::buffer( line_->writing ), std::move( handler ) );
   } );
}

}  // namespace Fleet
