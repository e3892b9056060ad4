// A process that has run out of descriptors, for as long as one of these lives.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace Host {

class AllDescriptors {
 public:
   AllDescriptors() {
      for( int fd; ( fd = ::open( "/dev/null", O_RDONLY | O_CLOEXEC ) ) >= 0; ) taken_.push_back( fd );
      error_ = errno;
   }
   AllDescriptors( AllDescriptors const & ) = delete;
   AllDescriptors & operator=( AllDescriptors const & ) = delete;
   ~AllDescriptors() {
      for( int const fd : taken_ ) ::close( fd );
   }
   // Why there were no more.
   [[nodiscard]] int error() const { return error_; }

 private:
   std::vector<int> taken_;
   int error_ = 0;
};

}  // namespace Host
