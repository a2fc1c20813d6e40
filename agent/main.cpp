#include <cstring>
#include <unistd.h>

#include "Agent.h"
#include "NetworkZygote.h"

int main(int argc, char** argv) {
    // The listener executes this program anew for one of its processes.
    if (argc == 1 && std::strcmp(argv[0], NetworkZygote::kName) == 0) {
        ::_exit(NetworkZygote::run());
    }
    return agent::run(argc, argv);
}
