// The network library, compiled once.
#include <asio/impl/src.hpp>
