// How a fleet's keys are named in the broker: what boxes and owner send to and listen to there, and so what each of
// them is allowed to.
//
// A key "status.spine-3a" is the subject "$KV.fleet.status.spine-3a" of the stream KV_fleet, which is how key-value
// buckets lie in JetStream. Whoever reads a key directly says where the answer is to go: each has one subject of its
// own for that, named exactly, so that nobody needs leave to listen to more.
#pragma once

#include <string>
#include <string_view>

namespace Fleet {

// The name of the fleet's owner among its boxes, of which none can have it.
constexpr std::string_view ownerName = "owner";

constexpr std::string_view bucketStream = "KV_fleet";
constexpr std::string_view bucketSubjects = "$KV.fleet.>";
constexpr std::string_view keyPrefix = "$KV.fleet.";
constexpr std::string_view makeBucketSubject = "$JS.API.STREAM.CREATE.KV_fleet";

[[nodiscard]] inline std::string desiredKey( std::string const & box ) { return "desired." + box; }
[[nodiscard]] inline std::string statusKey( std::string const & box ) { return "status." + box; }

constexpr std::string_view ownerKey = "owner";

[[nodiscard]] inline std::string subjectOf( std::string const & key ) { return std::string( keyPrefix ) + key; }
// The newest value of a key is asked for here.
[[nodiscard]] inline std::string readSubjectOf( std::string const & key ) {
   return "$JS.API.DIRECT.GET.KV_fleet." + subjectOf( key );
}
// And is sent here; by the name of a box, or the owner's.
[[nodiscard]] inline std::string readInboxOf( std::string const & name ) { return "_INBOX_fleet." + name + ".read"; }
// Where the owner hears whether the bucket stands.
constexpr std::string_view bucketInbox = "_INBOX_fleet.owner.bucket";

}  // namespace Fleet
