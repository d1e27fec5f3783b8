// Writes the seed inputs of the fuzz targets into corpus folders.
//   fuzz_make_seeds --list                 the target names, one a line
//   fuzz_make_seeds <target> <folder> <fixtures folder> [<upstream folder>]
#include "targets/FuzzTargets.h"

#include <cstdio>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--list") {
        for (size_t i = 0; i < kFuzzTargetCount; ++i) {
            std::printf("%s\n", kFuzzTargets[i].name);
        }
        return 0;
    }
    if (argc != 4 && argc != 5) {
        std::fprintf(stderr, "usage: %s --list | <target> <folder> <fixtures folder> [<upstream folder>]\n",
                     argv[0]);
        return 2;
    }
    const std::string target = argv[1];
    if (FindFuzzTarget(target) == nullptr) {
        std::fprintf(stderr, "unknown target %s\n", target.c_str());
        return 2;
    }
    const std::string folder = argv[2];
    std::vector<FuzzSeed> seeds = MakeFuzzSeeds(target, argv[3], argc == 5 ? argv[4] : "");
    if (seeds.empty()) {
        std::fprintf(stderr, "no seeds for %s (are the fixtures made?)\n", target.c_str());
        return 1;
    }
    for (const FuzzSeed& seed : seeds) {
        std::ofstream out(folder + "/seed-" + seed.name, std::ios::binary | std::ios::trunc);
        out.write(seed.bytes.data(), static_cast<std::streamsize>(seed.bytes.size()));
        if (!out) {
            std::fprintf(stderr, "cannot write %s/seed-%s\n", folder.c_str(), seed.name.c_str());
            return 1;
        }
    }
    std::printf("%s: %zu seeds\n", target.c_str(), seeds.size());
    return 0;
}
