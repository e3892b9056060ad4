// A TCP port of this machine for as long as this object lives.
//
// It is none of those that the kernel gives to connections: a client that tries to reach a port of those while nobody
// listens there may be given that port itself, and is connected to nobody but itself. Tests that run at the same time
// claim their ports by names that go with their processes.
#pragma once

namespace Fleet {

class FreePort {
 public:
   FreePort();
   FreePort( FreePort const & ) = delete;
   FreePort & operator=( FreePort const & ) = delete;
   ~FreePort();

   [[nodiscard]] int number() const { return number_; }

 private:
   int claim_ = -1;
   int number_ = 0;
};

}  // namespace Fleet
