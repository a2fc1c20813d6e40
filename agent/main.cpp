#include "Agent.h"

int main(int argc, char** argv) {
    return agent::run(argc, argv);
}
