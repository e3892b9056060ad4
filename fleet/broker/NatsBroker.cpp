#include "broker/NatsBroker.h"

#include <nats/nats.h>

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <optional>

#include "keys/NKey.h"
#include "keys/Subjects.h"

namespace Fleet {

namespace json = boost::json;

namespace {

constexpr int mostPending = 65536;  // letters that wait to be taken: several statuses of ten thousand boxes
constexpr int mostPendingBytes = 256 * 1024 * 1024;
constexpr int64_t writeMilliseconds = 2000;   // that a broker which takes nothing holds up its writer
constexpr int64_t pingMilliseconds = 15'000;  // a broker that does not answer two of them is lost
constexpr std::chrono::seconds bucketPatience{ 5 };
constexpr std::chrono::milliseconds quickAnswer{ 500 };
constexpr int64_t otherConfiguration = 10058;  // the broker's number for a stream that is there, and another

void held( natsStatus status, char const * what ) {
   if( status != NATS_OK ) throw BrokerFault( std::string( what ) + ": " + natsStatus_GetText( status ) );
}

char const * headerOf( natsMsg * letter, char const * name ) {
   char const * value = nullptr;
   return natsMsgHeader_Get( letter, name, &value ) == NATS_OK ? value : nullptr;
}

std::string textOf( natsMsg * letter ) {
   return { natsMsg_GetData( letter ), static_cast<std::size_t>( natsMsg_GetDataLength( letter ) ) };
}

// Absent where it is none: the answer that there is no such key names none, and a key that was deleted is marked.
std::optional<Broker::Letter> letterFrom( natsMsg * message ) {
   if( headerOf( message, "KV-Operation" ) ) return std::nullopt;
   char const * const original = headerOf( message, "Nats-Subject" );
   std::string_view const subject = original ? original : natsMsg_GetSubject( message );
   if( !subject.starts_with( keyPrefix ) ) return std::nullopt;
   return Broker::Letter{ std::string( subject.substr( keyPrefix.size() ) ), textOf( message ) };
}

// As key-value buckets are laid out, so that the usual tools can show it. The newest value of a key is all that counts,
// and whoever wrote it writes it again: it need not outlive the broker.
std::string bucketConfiguration() {
   return json::serialize( json::object{ { "name", bucketStream },
                                         { "subjects", { bucketSubjects } },
                                         { "retention", "limits" },
                                         { "max_consumers", -1 },
                                         { "max_msgs", -1 },
                                         { "max_bytes", -1 },
                                         { "max_msg_size", -1 },
                                         { "max_age", 0 },
                                         { "max_msgs_per_subject", 1 },
                                         { "discard", "new" },
                                         { "storage", "memory" },
                                         { "num_replicas", 1 },
                                         { "allow_direct", true },
                                         { "allow_rollup_hdrs", true },
                                         { "deny_delete", true } } );
}

}  // namespace

NatsBroker::NatsBroker( NatsOptions options )
   : options_( std::move( options ) ),
     address_( Address::of( options_.url, options_.caFile ) ),
     natsOptions_( nullptr, natsOptions_Destroy ),
     connection_( nullptr, natsConnection_Destroy ),
     news_( nullptr, natsSubscription_Destroy ),
     answers_( nullptr, natsSubscription_Destroy ),
     bucket_( nullptr, natsSubscription_Destroy ),
     owners_( nullptr, natsSubscription_Destroy ) {
   setUpOptions();
   trouble_ = "not connected to the broker at " + address_.url() + " yet";
   due_ = randomlyLater();
}

NatsBroker::~NatsBroker() = default;

void NatsBroker::setUpOptions() {
   natsOptions * made = nullptr;
   held( natsOptions_Create( &made ), "preparing a connection" );
   natsOptions_.reset( made );
   char const * const what = "preparing a connection";
   held( natsOptions_SetURL( made, address_.url().c_str() ), what );
   held( natsOptions_SetName( made, isOwner() ? ownerName.data() : options_.box.c_str() ), what );
   held( natsOptions_SetAllowReconnect( made, false ), what );
   held( natsOptions_SetWriteDeadline( made, writeMilliseconds ), what );
   held( natsOptions_SetPingInterval( made, pingMilliseconds ), what );
   if( !options_.keyFile.empty() ) setUpKey();
   if( address_.tls ) setUpTls();
}

void NatsBroker::setUpKey() {
   NKey const key = NKey::fromFile( options_.keyFile );
   held( natsOptions_SetNKeyFromSeed( natsOptions_.get(), key.publicText().c_str(), options_.keyFile.c_str() ),
         "using the key" );
}

void NatsBroker::setUpTls() {
   std::string const & name = options_.serverName.empty() ? address_.host : options_.serverName;
   held( natsOptions_SetSecure( natsOptions_.get(), true ), "using TLS" );
   held( natsOptions_LoadCATrustedCertificates( natsOptions_.get(), options_.caFile.c_str() ), "reading the CA file" );
   held( natsOptions_SetExpectedHostname( natsOptions_.get(), name.c_str() ), "using TLS" );
}

double NatsBroker::reconnectSeconds() const {
   double const asked = std::max( options_.reconnectSeconds, 0.0 );
   return isOwner() ? std::min( asked, ownerReconnectSeconds ) : asked;
}

NatsBroker::Clock::time_point NatsBroker::randomlyLater() {
   std::uniform_real_distribution<double> part( 0, reconnectSeconds() );
   return Clock::now() +
          std::chrono::duration_cast<Clock::duration>( std::chrono::duration<double>( part( random_ ) ) );
}

// --- The connection

void NatsBroker::stateIs( State state, std::string const & trouble ) {
   trouble_ = trouble;
   if( state == state_ ) return;
   bool const news = state == State::up || state_ == State::up;
   state_ = state;
   if( news ) options_.told( connected() ? "connected to the broker" : "no connection to the broker: " + trouble );
}

void NatsBroker::look() {
   if( !connection_ ) {
      if( Clock::now() >= due_ && ( !reach_ || reach_->answered() ) ) open();
      return;
   }
   if( natsConnection_Status( connection_.get() ) != NATS_CONN_STATUS_CONNECTED ) return close( lastError() );
   if( state_ == State::away ) return handleConnected();
   if( state_ == State::joined && !isOwner() ) stateIs( State::up, "" );
   if( state_ == State::joined && Clock::now() - bucketAsked_ > bucketPatience ) askForBucket();
   if( state_ == State::up ) lookForRefusal();
}

void NatsBroker::open() {
   dropped_ = 0;
   auto const begun = Clock::now();
   std::string const why = attempt( reach_ ? attemptMilliseconds : firstMilliseconds );
   reach_.reset();
   if( !connection_ ) {
      close( why );
      // A machine that refuses does so at once. Who has kept us waiting is not waited for again.
      if( Clock::now() - begun > quickAnswer ) reach_.emplace( address_ );
      return;
   }
   try {
      news_ = subscribed( subjectOf( isOwner() ? statusKey( "*" ) : desiredKey( options_.box ) ) );
      answers_ = subscribed( readInboxOf( isOwner() ? std::string( ownerName ) : options_.box ) );
      if( !isOwner() ) return;
      bucket_ = subscribed( std::string( bucketInbox ) );
      owners_ = subscribed( subjectOf( std::string( ownerKey ) ) );
   } catch( BrokerFault const & fault ) {
      return close( fault.what() );
   }
}

std::string NatsBroker::attempt( int milliseconds ) {
   natsConnection * made = nullptr;
   held( natsOptions_SetTimeout( natsOptions_.get(), milliseconds ), "connecting" );
   natsStatus const status = natsConnection_Connect( &made, natsOptions_.get() );
   connection_.reset( made );
   return status == NATS_OK ? "" : lastErrorHere();
}

void NatsBroker::close( std::string const & why ) {
   owners_.reset();
   bucket_.reset();
   answers_.reset();
   news_.reset();
   connection_.reset();
   due_ = randomlyLater();
   stateIs( State::away, why );
}

NatsBroker::Held<natsSubscription> NatsBroker::subscribed( std::string const & subject ) {
   natsSubscription * made = nullptr;
   held( natsConnection_SubscribeSync( &made, connection_.get(), subject.c_str() ), "listening to the broker" );
   Held<natsSubscription> subscription( made, natsSubscription_Destroy );
   held( natsSubscription_SetPendingLimits( made, mostPending, mostPendingBytes ), "listening to the broker" );
   return subscription;
}

void NatsBroker::handleConnected() {
   stateIs( State::joined, isOwner() ? "the broker has not made the bucket yet, for which it needs JetStream"
                                     : "just connected to the broker" );
   if( isOwner() ) askForBucket();
}

void NatsBroker::askForBucket() {
   bucketAsked_ = Clock::now();
   std::string const what = bucketConfiguration();
   // Lost, it is asked for again.
   static_cast<void>( natsConnection_PublishRequest( connection_.get(), makeBucketSubject.data(), bucketInbox.data(),
                                                     what.data(), static_cast<int>( what.size() ) ) );
}

void NatsBroker::handleBucket( std::string const & answer ) {
   boost::system::error_code error;
   json::value const document = json::parse( answer, error );
   if( error || !document.is_object() ) {
      return stateIs( State::joined, "the broker's answer cannot be read: " + answer );
   }
   json::value const * const refusal = document.as_object().if_contains( "error" );
   if( !refusal ) return stateIs( State::up, "" );
   json::value const * const number = refusal->is_object() ? refusal->as_object().if_contains( "err_code" ) : nullptr;
   if( number && number->is_int64() && number->as_int64() == otherConfiguration ) {
      return stateIs( State::joined, "the broker has a stream " + std::string( bucketStream ) +
                                        " that is configured otherwise: remove that, it holds nothing that is not sent "
                                        "again" );
   }
   stateIs( State::joined, "the broker does not make the bucket: " + json::serialize( *refusal ) );
}

// What it has not let us do, as to write another's key: it stays connected, and nothing else would show it.
void NatsBroker::lookForRefusal() {
   char const * text = nullptr;
   if( natsConnection_GetLastError( connection_.get(), &text ) != NATS_NOT_PERMITTED ) return;
   std::string const refusal = std::string( "the broker refuses: " ) + ( text ? text : "" );
   if( refusal == trouble_ ) return;
   trouble_ = refusal;
   options_.told( refusal );
}

std::string NatsBroker::lastErrorHere() const {
   natsStatus status = NATS_OK;
   char const * const text = nats_GetLastError( &status );
   return address_.url() + ": " + ( text && *text ? text : natsStatus_GetText( status ) );
}

// What is known already is better than that no attempt has succeeded since.
std::string NatsBroker::lastError() const {
   char const * text = nullptr;
   natsStatus const status = natsConnection_GetLastError( connection_.get(), &text );
   bool const known = status != NATS_OK && status != NATS_NO_SERVER;
   if( !known && state_ == State::away && !trouble_.empty() ) return trouble_;
   return address_.url() + ": " +
          ( !known          ? "the connection is lost"
            : text && *text ? text
                            : natsStatus_GetText( status ) );
}

// --- Letters

bool NatsBroker::put( std::string const & key, std::string const & text ) {
   if( !connected() || natsConnection_Status( connection_.get() ) != NATS_CONN_STATUS_CONNECTED ) return false;
   return natsConnection_Publish( connection_.get(), subjectOf( key ).c_str(), text.data(),
                                  static_cast<int>( text.size() ) ) == NATS_OK;
}

void NatsBroker::read( std::string const & key ) {
   if( !connected() ) return;
   std::string const inbox = readInboxOf( isOwner() ? std::string( ownerName ) : options_.box );
   // Lost, it is asked for again by whoever wants it.
   static_cast<void>(
      natsConnection_PublishRequest( connection_.get(), readSubjectOf( key ).c_str(), inbox.c_str(), nullptr, 0 ) );
}

std::vector<Broker::Letter> NatsBroker::arrived() {
   look();
   std::vector<Letter> letters;
   if( !connection_ ) return letters;
   if( bucket_ ) {
      while( auto const answer = nextOf( bucket_.get() ) ) {
         if( state_ == State::joined ) handleBucket( textOf( answer.get() ) );
      }
   }
   // The word of another owner before all that might be ordered next.
   if( owners_ ) takeFrom( owners_.get(), letters );
   takeFrom( news_.get(), letters );
   takeFrom( answers_.get(), letters );
   tellDropped();
   return letters;
}

// Null when there is none.
NatsBroker::Held<natsMsg> NatsBroker::nextOf( natsSubscription * from ) {
   while( true ) {
      natsMsg * message = nullptr;
      natsStatus const status = natsSubscription_NextMsg( &message, from, 0 );
      // Said once each, in place of a letter.
      bool const nobodyAnswers = status == NATS_NO_RESPONDERS;
      if( nobodyAnswers && from == bucket_.get() ) stateIs( State::joined, "the broker has no JetStream" );
      if( nobodyAnswers || status == NATS_SLOW_CONSUMER ) continue;
      return { status == NATS_OK ? message : nullptr, natsMsg_Destroy };
   }
}

void NatsBroker::takeFrom( natsSubscription * from, std::vector<Letter> & into ) {
   while( auto const message = nextOf( from ) ) {
      if( auto letter = letterFrom( message.get() ) ) into.push_back( std::move( *letter ) );
   }
}

void NatsBroker::tellDropped() {
   int64_t dropped = 0;
   if( natsSubscription_GetDropped( news_.get(), &dropped ) != NATS_OK || dropped <= dropped_ ) return;
   options_.told( std::to_string( dropped - dropped_ ) + " letters of the broker were dropped: they came faster than " +
                  "they were taken, or all at once" );
   dropped_ = dropped;
}

}  // namespace Fleet
