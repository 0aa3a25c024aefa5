// Runs the benchmarks, then prints the ratio of each of ours to its peer measured in the same
// run. A benchmark named "X/peer:Y" is the peer Y of the benchmark named "X".

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>

namespace {

std::string strip(std::string name) {
    const std::string suffix = "/real_time";
    if (name.size() > suffix.size() &&
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
        name.resize(name.size() - suffix.size());
    return name;
}

class RecordingReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> seconds;
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const auto& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                seconds[strip(run.benchmark_name())] =
                    run.GetAdjustedRealTime() * benchmark::GetTimeUnitMultiplier(run.time_unit);
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    bool header = false;
    for (const auto& [name, time] : reporter.seconds) {
        const auto at = name.find("/peer:");
        if (at == std::string::npos) continue;
        const std::string ours = name.substr(0, at);
        const auto it = reporter.seconds.find(ours);
        if (it == reporter.seconds.end()) continue;
        if (!header)
            std::printf("\nratio = our time / peer time (below 1 is faster)\n"), header = true;
        std::printf("%-48s %-28s %.3f\n", ours.c_str(), name.substr(at + 6).c_str(),
                    it->second / time);
    }
    benchmark::Shutdown();
    return 0;
}
