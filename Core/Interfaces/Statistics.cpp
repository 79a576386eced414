// This file implements the statistics records as Property trees.
#include <Core/Interfaces/Statistics.h>

namespace Tarsel::Core {

const std::string IComputingResource::CPU = "CPU";
const std::string IComputingResource::CUDA = "CUDA";
const std::string IComputingResource::IM = "IM";

const std::string PerformanceTimer::CLASS_NAME = "Class name";
const std::string PerformanceTimer::INFO = "Info";
const std::string PerformanceTimer::TIME = "Working time";
const std::string PerformanceTimer::COUNT = "Processed data count";
const std::string PerformanceTimer::IMPL_NAME = "Impl ID";

std::string ExtractClassName(const std::string& name) {
    const std::size_t lastColon = name.rfind(':');
    if (lastColon == std::string::npos || lastColon == 0) {
        return name;
    }
    return name.substr(0, lastColon - 1);
}

Property GetRootItem() {
    return Property("");
}

Property GetNoImplItem(const std::string& name) {
    Property item("");
    Property result = GetRootItem();
    item.SetChildT<std::string>(PerformanceTimer::CLASS_NAME, ExtractClassName(name));
    item.SetChild(PerformanceTimer::INFO, "Statistic collection not implemented");
    result.Add(item);
    return result;
}

Property MakeStatistics(const std::string& name, long long time, unsigned long count) {
    const double microseconds = static_cast<double>(time);
    Property root = GetRootItem();
    root.SetChildT<std::string>(PerformanceTimer::CLASS_NAME, ExtractClassName(name));
    root.SetChildT<double>(PerformanceTimer::TIME, microseconds / 1000000.0);
    root.SetChildT<long long>(PerformanceTimer::COUNT, static_cast<long long>(count));
    root.SetChildT<double>("ms per frame", microseconds / (static_cast<double>(count) * 1000.0));
    return root;
}

}  // namespace Tarsel::Core
