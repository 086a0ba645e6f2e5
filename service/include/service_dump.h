// The state of a running service as one JSON document, for
// `devicedetect dump` (control request DUMP). docs/dump.md lists its fields;
// they only ever grow.
#ifndef SYNTAVO_SIM_SERVICE_DUMP_H
#define SYNTAVO_SIM_SERVICE_DUMP_H

#include <string>

namespace Tavik {
namespace Syntavo {
namespace Sim {

class Simulator;

std::string ServiceDumpJson(const Simulator& simulator);

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_SERVICE_DUMP_H
