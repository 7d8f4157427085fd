#pragma once

#include <boost/asio/buffer.hpp>
#include <cstddef>

namespace transport {

/// An array of buffers as Asio wants them.
struct Buffer_Range {
  typedef boost::asio::const_buffer value_type;
  typedef const boost::asio::const_buffer* const_iterator;

  Buffer_Range(const_iterator buffers, std::size_t count) : first(buffers), last(buffers + count) {}
  const_iterator begin() const { return first; }
  const_iterator end() const { return last; }

  const_iterator first;
  const_iterator last;
};

}  // namespace transport
