// The framework's end, as plain as can be: a forked process that blocks in read, takes one frame,
// whatever it says, and writes the next of its answers, over and over.
#ifndef ZARN_BENCH_PEER_H_
#define ZARN_BENCH_PEER_H_

#include <string>
#include <string_view>
#include <vector>

namespace arvl_bench {

// Header and payload.
std::string makeFrame(int type, std::string_view payload);

// Forks a peer and connects to it; the result is the socket, for the caller to close. The peer makes
// its answers itself, so that they take no memory here; it has them when this returns, and ends with
// the connection.
int connectToPeer(std::vector<std::string> (*makeAnswers)());

// This end without a library: blocking, all of the bytes.
void writeAll(int socket, std::string_view bytes);
void readAll(int socket, std::string &bytes);  // as many as there is room for

}  // namespace arvl_bench

#endif  // ZARN_BENCH_PEER_H_
