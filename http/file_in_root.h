#pragma once

namespace http {

/// A file descriptor that is closed at the end of the scope.
class Descriptor {
public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return number_; }
  bool is_open() const { return number_ >= 0; }
  /// Hands the descriptor over.
  int release();
  /// Closes it and takes another one.
  void reset(int number);

private:
  int number_;  // -1: none
};

/// Opens the root folder of what is served, for open_in_root(). A descriptor, or -1 with errno.
int open_root(const char* path);

/// Opens what lies at `path`, which is relative and ends without '/', below the folder `root`, to
/// be read; a FIFO does not block. The kernel sees to it that no ".." and no symbolic link leads
/// out of `root`; links inside of it are followed. A descriptor, or -1 with errno: EXDEV for a way
/// out.
int open_in_root(int root, const char* path);

/// The same for kernels that cannot (before Linux 5.6), or are not let: folder by folder, following
/// no symbolic link at all (ELOOP).
int open_by_steps(int root, const char* path);

}  // namespace http
