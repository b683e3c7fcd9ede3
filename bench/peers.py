"""Which peers there are: their names, what they are called, and the Debian packages they come from."""

from dataclasses import dataclass


@dataclass(frozen=True)
class Peer:
    name: str
    label: str
    packages: tuple = ()


PEERS = {
    peer.name: peer
    for peer in (
        Peer("raw", "raw socket"),
        Peer("cvtp", "libcvtp"),
        Peer("thrift", "Thrift", ("libthrift-dev", "thrift-compiler")),
        Peer("beast", "Boost.Beast", ("libboost-dev",)),
        Peer("httplib", "cpp-httplib", ("libcpp-httplib-dev",)),
        Peer("grpc", "gRPC", ("libgrpc++-dev", "protobuf-compiler-grpc")),
        Peer("nng", "nng", ("libnng-dev",)),
        Peer("zeromq", "ZeroMQ", ("libzmq3-dev", "cppzmq-dev")),
        Peer("sdbus", "sd-bus", ("libsystemd-dev",)),
    )
}

WORKLOADS = {
    "W1": "one client, 100 bytes each way",
    "W2": "four clients, 100 bytes each way",
    "W3": "1 MiB up, 100 bytes back",
    "W4": "a stream of 64 MiB up",
    "W5": "one-way messages of 100 bytes",
    "W6": "connect, one request, close",
    "W7": "memory of a server with 1,000 idle connections",
}

PLACEMENTS = {
    "one-core": "both processes on one core",
    "unpinned": "wherever the system puts them",
    "two-cores": "each process on a core of its own",
}
USUAL_PLACEMENTS = ["one-core", "unpinned"]

# What one operation of a workload is called.
UNITS = {"W4": "stream", "W5": "message", "W6": "connection", "W7": "connection"}

IDLE_CONNECTIONS = 1000
STREAM_MIB = 64


def unit_of(workload):
    return UNITS.get(workload, "request")
