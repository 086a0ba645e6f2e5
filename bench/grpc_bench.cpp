// dd_bench_grpc: the gRPC peer of dd_bench. A unary call over a Unix socket
// to dd_bench_grpc_peer, with the small call's sizes and with a reply of the
// 1024 records. Built only when grpc++, protobuf and their compilers are
// installed; scripts/bench.sh runs it after dd_bench and puts both in one
// table.
#include <benchmark/benchmark.h>
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench_util.h"
#include "peer.grpc.pb.h"

namespace Tavik {
namespace Syntavo {
namespace Bench {
namespace {

// dd_bench_grpc_peer as a child process, started on first use and stopped
// at exit.
class GrpcPeer {
public:
    static GrpcPeer& Get()
    {
        static GrpcPeer* peer = [] {
            auto* started = new GrpcPeer();
            if (started->Start()) {
                std::atexit([] { Get().Stop(); });
            }
            return started;
        }();
        return *peer;
    }

    ddbench::BenchPeer::Stub* Stub() { return stub_.get(); }

private:
    bool Start()
    {
        char pattern[] = "/tmp/dd-bench-grpc-XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            return false;
        }
        dir_ = pattern;
        std::string socketPath = dir_ + "/peer.sock";
        std::string line;
        pid_ = StartChild({DD_BENCH_GRPC_PEER, socketPath}, line);
        if (pid_ < 0 || line != "ready") {
            std::fprintf(stderr, "dd_bench: dd_bench_grpc_peer did not start (%s)\n", line.c_str());
            Stop();
            return false;
        }
        stub_ =
            ddbench::BenchPeer::NewStub(grpc::CreateChannel("unix:" + socketPath, grpc::InsecureChannelCredentials()));
        return true;
    }

    void Stop()
    {
        stub_.reset();
        StopChild(pid_);
        if (!dir_.empty()) {
            unlink((dir_ + "/peer.sock").c_str());
            rmdir(dir_.c_str());
            dir_.clear();
        }
    }

    pid_t pid_ = -1;
    std::string dir_;
    std::unique_ptr<ddbench::BenchPeer::Stub> stub_;
};

void GrpcSmall(benchmark::State& state)
{
    ddbench::BenchPeer::Stub* stub = GrpcPeer::Get().Stub();
    if (stub == nullptr) {
        state.SkipWithError("no gRPC peer");
        return;
    }
    ddbench::SmallRequest request;
    request.set_payload(std::string(MeasureSwitchSizes().request, 'x'));
    for (auto _ : state) {
        grpc::ClientContext context;
        ddbench::SmallReply reply;
        if (!stub->Small(&context, request, &reply).ok()) {
            state.SkipWithError("call failed");
            break;
        }
        benchmark::DoNotOptimize(reply.payload().data());
    }
}
BENCHMARK(GrpcSmall)->Name("peer/grpc/unary_small_sizes");

void GrpcList(benchmark::State& state)
{
    ddbench::BenchPeer::Stub* stub = GrpcPeer::Get().Stub();
    if (stub == nullptr) {
        state.SkipWithError("no gRPC peer");
        return;
    }
    ddbench::ListRequest request;
    for (auto _ : state) {
        grpc::ClientContext context;
        ddbench::ListReply reply;
        if (!stub->TrustedDeviceList(&context, request, &reply).ok() || reply.devices_size() != 1024) {
            state.SkipWithError("call failed");
            break;
        }
        benchmark::DoNotOptimize(reply.devices().data());
    }
}
BENCHMARK(GrpcList)->Name("peer/grpc/unary_TrustedDeviceList/1024");

}  // namespace
}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik

BENCHMARK_MAIN();
