// Runs the benchmarks, then prints the ratio of each of ours to its peer measured in the same
// run. A benchmark named "X/peer:Y" is the peer Y of the benchmark named "X".

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string>

namespace {

// Drops the "/real_time", "/manual_time", "/iterations:N", "/min_time:T" and "/<argument>" parts
// Google Benchmark appends to a name.
std::string strip(std::string name) {
    for (;;) {
        const auto slash = name.rfind('/');
        if (slash == std::string::npos) return name;
        const std::string last = name.substr(slash + 1);
        const bool number =
            !last.empty() && last.find_first_not_of("0123456789") == std::string::npos;
        if (last != "real_time" && last != "manual_time" && last.rfind("iterations:", 0) != 0 &&
            last.rfind("min_time:", 0) != 0 && !number)
            return name;
        name.resize(slash);
    }
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
