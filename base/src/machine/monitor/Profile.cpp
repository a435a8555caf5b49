#include "machine/monitor/Profile.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <map>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/monitor/ProfileRecorder.h"

namespace tolm {
namespace {

using Value = Properties::Value;

struct Spread {
    double min = std::numeric_limits<double>::max();
    double sum = 0.0;
    double max = 0.0;

    void add(double value) {
        min = std::min(min, value);
        max = std::max(max, value);
        sum += value;
    }
};

Value commandsOf(const std::vector<Properties>& processes) {
    std::map<std::string, std::pair<unsigned long, Spread>> commands;
    for (const Properties& process : processes) {
        for (const auto& [name, times] : process.value().at("commands").items())
            commands[name].first =
                std::max(commands[name].first, times.at("count").get<unsigned long>());
    }
    for (auto& [name, entry] : commands) {
        for (const Properties& process : processes) {
            const Value& times = process.value().at("commands");
            entry.second.add(times.contains(name) ? times.at(name).at("seconds").get<double>()
                                                  : 0.0);
        }
    }
    Value result = Value::object();
    for (const auto& [name, entry] : commands) {
        const Spread& wall = entry.second;
        const double average = wall.sum / static_cast<double>(processes.size());
        result[name] = Value{{"count", entry.first},
                             {"wall", {{"min", wall.min}, {"average", average}, {"max", wall.max}}},
                             {"imbalance", average > 0.0 ? wall.max / average : 1.0}};
    }
    return result;
}

Value operationsOf(const std::vector<Properties>& processes) {
    Value result = Value::array();
    std::map<std::string, std::size_t> index;
    for (const Properties& process : processes) {
        for (const Value& operation : process.value().at("operations")) {
            const std::string name = operation.at("name").get<std::string>();
            const auto [found, added] = index.emplace(name, result.size());
            if (added)
                result.push_back(Value{{"name", name}, {"messages", 0ul}, {"bytes", 0ull}});
            Value& entry = result[found->second];
            entry["messages"] =
                entry["messages"].get<unsigned long>() + operation.at("count").get<unsigned long>();
            entry["bytes"] = entry["bytes"].get<unsigned long long>() +
                             operation.at("bytes").get<unsigned long long>();
        }
    }
    return result;
}

std::string line(const char* format, auto... values) {
    char text[256];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

}  // namespace

Properties Profile::gather(const ProfileRecorder& mine) {
    const std::string record = mine.toProperties().toString();
    if (Machine::isSerial())
        return combine({Properties(record)});
    std::vector<std::string> records;
    Machine::globalCommunicator()->gather(record, records, Communicator::masterRank());
    if (!Machine::isMaster())
        return Properties();
    std::vector<Properties> processes;
    processes.reserve(records.size());
    for (const std::string& text : records)
        processes.emplace_back(text);
    return combine(processes);
}

Properties Profile::combine(const std::vector<Properties>& processes) {
    Properties profile;
    profile.set("processes", processes.size());
    profile.set("commands", commandsOf(processes));
    Value seconds = Value::array();
    for (const Properties& process : processes)
        seconds.push_back(process.get<double>("communicationSeconds"));
    profile.set("communicationSeconds", seconds);
    profile.set("operations", operationsOf(processes));
    return profile;
}

std::string Profile::format(const Properties& profile) {
    const Value& tree = profile.value();
    std::string text = line(
        "Profile of the job over %u processes (wall seconds of each command's "
        "handler, over the processes)\n",
        tree.at("processes").get<unsigned>());
    text += line("%-28s %8s %12s %12s %12s %10s\n", "command", "count", "min", "average", "max",
                 "imbalance");
    for (const auto& [name, entry] : tree.at("commands").items()) {
        const Value& wall = entry.at("wall");
        text += line("%-28s %8lu %12.6f %12.6f %12.6f %10.2f\n", name.c_str(),
                     entry.at("count").get<unsigned long>(), wall.at("min").get<double>(),
                     wall.at("average").get<double>(), wall.at("max").get<double>(),
                     entry.at("imbalance").get<double>());
    }
    // Every rank's figure is in the JSON; the table names the extremes, for any job size.
    const Value& seconds = tree.at("communicationSeconds");
    if (!seconds.empty()) {
        const auto [least, most] = std::minmax_element(seconds.begin(), seconds.end());
        double sum = 0.0;
        for (const Value& value : seconds)
            sum += value.get<double>();
        text += line(
            "Seconds inside communication per rank: min %.6f (rank %td), average %.6f, "
            "max %.6f (rank %td)\n",
            least->get<double>(), least - seconds.begin(),
            sum / static_cast<double>(seconds.size()), most->get<double>(), most - seconds.begin());
    }
    text += line("%-34s %12s %16s\n", "operation (all processes)", "messages", "bytes");
    for (const Value& operation : tree.at("operations")) {
        text += line("%-34s %12lu %16llu\n", operation.at("name").get<std::string>().c_str(),
                     operation.at("messages").get<unsigned long>(),
                     operation.at("bytes").get<unsigned long long>());
    }
    return text;
}

}  // namespace tolm
