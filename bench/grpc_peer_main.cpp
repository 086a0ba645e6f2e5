// dd_bench_grpc_peer: the gRPC server of the peer benchmarks. Serves the
// BenchPeer service on the Unix socket given as its argument, prints
// "ready" once it accepts calls, and runs until it is killed.
//
// The list is answered the way a gRPC service ordinarily answers: the
// records are held in memory and the reply message is filled from them on
// every call (gRPC then serialises it).
#include <grpcpp/grpcpp.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "bench_util.h"
#include "peer.grpc.pb.h"

namespace {

using Tavik::Syntavo::Bench::ListSizes;

class Peer final : public ddbench::BenchPeer::Service {
public:
    Peer() : sizes_(Tavik::Syntavo::Bench::MeasureSwitchSizes())
    {
        for (const auto& device : Tavik::Syntavo::Bench::MakeWorld(1024).devices) {
            devices_.push_back({device.udid, device.networkId, device.name, device.type});
        }
    }

    grpc::Status Small(grpc::ServerContext* /* context */, const ddbench::SmallRequest* /* request */,
                       ddbench::SmallReply* reply) override
    {
        reply->set_payload(std::string(sizes_.reply, '\0'));
        return grpc::Status::OK;
    }

    grpc::Status TrustedDeviceList(grpc::ServerContext* /* context */, const ddbench::ListRequest* /* request */,
                                   ddbench::ListReply* reply) override
    {
        reply->mutable_devices()->Reserve(static_cast<int>(devices_.size()));
        for (const Record& device : devices_) {
            ddbench::DeviceRecord* record = reply->add_devices();
            record->set_udid(device.udid);
            record->set_network_id(device.networkId);
            record->set_device_name(device.name);
            record->set_device_type(device.type);
        }
        return grpc::Status::OK;
    }

private:
    struct Record {
        std::string udid;
        std::string networkId;
        std::string name;
        uint32_t type;
    };
    ListSizes sizes_;
    std::vector<Record> devices_;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: dd_bench_grpc_peer SOCKET_PATH\n");
        return 2;
    }
    Peer peer;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(std::string("unix:") + argv[1], grpc::InsecureServerCredentials());
    builder.RegisterService(&peer);
    std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (server == nullptr) {
        std::printf("failed\n");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    server->Wait();
    return 0;
}
