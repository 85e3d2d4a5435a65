#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

// The console report, followed by a table of ratios: each BM_Index<Case>/<N> against the
// BM_Bare<Case>/<N> of the same run (CPU time), so the cost of an index over a bare
// std::multimap is read directly.
namespace {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                m_cpuTimes[run.benchmark_name()] = run.GetAdjustedCPUTime();
            }
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        const std::string index = "BM_Index";
        bool header = false;
        for (const auto& [name, time] : m_cpuTimes) {
            if (name.compare(0, index.size(), index) != 0) continue;
            const auto bare = m_cpuTimes.find("BM_Bare" + name.substr(index.size()));
            if (bare == m_cpuTimes.end() || bare->second <= 0) continue;
            if (!header) {
                std::printf("\n%-40s %10s\n", "index / bare (CPU time)", "ratio");
                header = true;
            }
            std::printf("%-40s %10.3g\n", name.c_str() + 3, time / bare->second);
        }
    }

private:
    std::map<std::string, double> m_cpuTimes;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
