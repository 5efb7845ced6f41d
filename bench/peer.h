// A minimal framework: a forked process that reads one frame, ignores its content, and writes the
// next of its answers, in a loop.
#ifndef ZARN_BENCH_PEER_H_
#define ZARN_BENCH_PEER_H_

#include <string>
#include <string_view>
#include <vector>

namespace arvl_bench {

// Returns the header and the payload.
std::string makeFrame(int type, std::string_view payload);

// Forks a peer and returns a socket connected to it; the caller closes it. The peer makes its
// answers itself, so that they take no memory here. They are ready when this returns. The peer ends
// with the connection.
int connectToPeer(std::vector<std::string> (*makeAnswers)());

// Write and read all bytes, blocking, without the library.
void writeAll(int socket, std::string_view bytes);
void readAll(int socket, std::string &bytes);  // as many as bytes.size()

}  // namespace arvl_bench

#endif  // ZARN_BENCH_PEER_H_
