// The peers for measuring the path of a request, and the floor: one program with the roles in road_roles.h. It prints all
// figures as one JSON object on standard output.
#include <cstdio>
#include <string>

#include "road_roles.h"

int main(int argc, char** argv) {
    const std::string role = argc > 1 ? argv[1] : "";
    const std::string directory = argc > 2 ? argv[2] : "";
    const std::string service = argc > 3 ? argv[3] : "";
    if (role == "upstream" && argc > 2) return road::playUpstream(directory, traffic::Options{{argv + 3, argv + argc}});
    if (role == "relay" && argc == 5) return road::playRelay(directory, service, argv[4]);
    if (role == "client" && argc > 3) return road::playClient(directory, service, traffic::Options{{argv + 4, argv + argc}});
    if (role == "watch" && argc > 3) return road::playWatchers(directory, service, traffic::Options{{argv + 4, argv + argc}});
    if (role == "start" && argc > 4) return road::measureStart(directory, service, {argv + 4, argv + argc});
    std::fprintf(stderr,
                 "usage: road upstream DIR [KEY=VALUE...]\n"
                 "       road relay DIR SERVICE UPSTREAM_SERVICE\n"
                 "       road client|watch DIR SERVICE [KEY=VALUE...]\n"
                 "       road start DIR SERVICE PROGRAM [ARGUMENT...]\n");
    return 2;
}
