#include "work.h"

#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace velto::host
{

namespace
{

constexpr double kCountless = 1e300; // caps sums before they overflow

// The inputs of a call.
class CallInputs
{
public:
    CallInputs(const CallPlan& call, const HostGroup& group, const std::map<UInt32, const Data*>& constants)
        : call_(call), group_(group), constants_(constants)
    {
    }

    // The value of an input if it is the same in every sample; null if it is computed.
    template <class T>
    const T* Constant(std::string_view port) const
    {
        const GroupPort* const found = group_.FindPort(port);
        if (!found || found->index < 0)
            return nullptr;
        const Address value = call_.slots[static_cast<std::size_t>(found->index)].value;
        const auto constant = constants_.find(value.offset);
        return value.store == Store::Setup && constant != constants_.end() ? constant->second->As<T>() : nullptr;
    }

    // The construction argument of a node that has one argument and no lists of ports.
    double Argument() const { return static_cast<double>(*reinterpret_cast<const Int*>(call_.record + 1)); }

private:
    const CallPlan& call_;
    const HostGroup& group_;
    const std::map<UInt32, const Data*>& constants_;
};

// How often a blur samples its colour, apart from the sample itself.
double BlurTaps(const CallInputs& inputs)
{
    const auto* const mode = inputs.Constant<InternedId>("mode");
    const auto* const radius = inputs.Constant<Float>("radius");
    const auto* const resolution = inputs.Constant<Int32>("resolution");
    const auto* const samples = inputs.Constant<Int32>("samples");
    if (mode && mode->View() == "kernel" && radius && resolution)
    {
        const double side = 2.0 * std::ceil(*radius * *resolution * 2.57) + 1.0;
        return side > 0.0 ? side * side : 0.0;
    }
    if (!mode || mode->View() != "stochastic")
        return 0.0;
    return radius && *radius <= 0.0 ? 1.0 : samples ? std::max(*samples, 0) : 0.0;
}

// About how many copies of a repeated pattern lie over a sample.
double CopiesAt(const CallInputs& inputs)
{
    const auto* const scale = inputs.Constant<Vector2d>("scale");
    return scale ? 1.0 + std::clamp(scale->x, 0.0, 4.0) * std::clamp(scale->y, 0.0, 4.0) : 1.0;
}

// How often a displaced pattern asks for its offset: step by step, for the sample and its two neighbours.
double WarpSteps(const CallInputs& inputs)
{
    const auto* const steps = inputs.Constant<Int>("steps");
    return 3.0 * static_cast<double>(steps ? std::clamp<Int>(*steps, 0, 16) : 1);
}

// How often a call of the node invokes the function. Values that it computes once and keeps do not count.
double Invocations(const HostGroup& group, std::string_view port, const CallInputs& inputs)
{
    const auto isOnce = [](const GroupPort* other) { return other && other->Mark() == port_mark::kOncePerSetup; };
    if (std::any_of(group.access.begin(), group.access.end(), isOnce))
        return 0.0;
    const std::string_view type = group.id.View();
    if (type == "net.velto.pattern.corenode.2d.kernel")
        return 10.0;
    if (type == "net.velto.pattern.corenode.2d.blur")
        return 1.0 + BlurTaps(inputs);
    if (type == "net.velto.render.corenode.bump")
        return 3.0;
    if (type == "net.velto.toolkit.corenode.shading.normalfromheight")
        return 4.0;
    if (type == "net.velto.toolkit.corenode.generator.tilesampler")
        return CopiesAt(inputs);
    if (type == "net.velto.toolkit.corenode.context.warp")
        return port == "offset" ? WarpSteps(inputs) : 1.0;
    if (type != "net.velto.pattern.corenode.generator.scatter")
        return 1.0;
    // A sample looks at one bucket, and a sixteenth of the items is much for one.
    return port == "perItemDensity" || port == "perItemShape" ? 1.0 + inputs.Argument() / 16.0 : 0.0;
}

class Estimator
{
public:
    explicit Estimator(const Program& program)
        : program_(program), sums_(program.bodies.size(), -1.0), invoked_(program.bodies.size())
    {
        for (const ValuePlan& value : program.setup.values)
        {
            if (value.initial.Type())
                constants_.emplace(value.offset, &value.initial);
        }
    }

    WorkEstimate Estimate()
    {
        for (const FunctionPlan& function : program_.setupBody.functions)
        {
            if (function.body >= 0)
                roots_.push_back(static_cast<std::size_t>(function.body));
        }
        std::size_t most = 0;
        if (!program_.bodies.empty())
            SumOf(0);
        for (std::size_t i = 0; i < roots_.size(); ++i) // grows on the way
            most = SumOf(roots_[i]) > SumOf(most) ? roots_[i] : most;

        WorkEstimate estimate;
        estimate.evaluations.assign(program_.nodeNames.size(), 0.0);
        if (program_.bodies.empty())
            return estimate;
        std::vector<double> runs(program_.bodies.size(), 0.0);
        runs[most] = 1.0;
        for (auto body = order_.rbegin(); body != order_.rend(); ++body)
        {
            for (const CallPlan& call : program_.bodies[*body].calls)
                Add(estimate.evaluations[call.node], runs[*body]);
            for (const auto& [inner, times] : invoked_[*body])
                Add(runs[inner], runs[*body] * times);
        }
        estimate.sum = sums_[most];
        return estimate;
    }

private:
    static void Add(double& sum, double part) { sum = std::min(sum + part, kCountless); }

    double SumOf(std::size_t index)
    {
        if (sums_[index] >= 0.0)
            return sums_[index];
        const BodyPlan& body = program_.bodies[index];
        std::map<std::pair<Store, UInt32>, std::size_t> functions;
        for (const FunctionPlan& function : body.functions)
        {
            if (function.body >= 0)
                functions.emplace(
                    std::pair(function.place.store, function.place.offset), static_cast<std::size_t>(function.body));
        }
        double sum = static_cast<double>(body.calls.size());
        for (const CallPlan& call : body.calls)
        {
            if (call.node >= program_.groups.size() || functions.empty())
                continue; // a conversion
            const HostGroup& group = AsHost(program_.groups[call.node]);
            const CallInputs inputs(call, group, constants_);
            for (std::size_t i = 0; i < call.slots.size(); ++i)
            {
                const auto function = functions.find({call.slots[i].value.store, call.slots[i].value.offset});
                if (function == functions.end() || !group.access[i]->input)
                    continue;
                const double times = Invocations(group, group.access[i]->name, inputs);
                if (times > 0.0)
                    invoked_[index].emplace_back(function->second, times);
                else
                    roots_.push_back(function->second);
                Add(sum, times * SumOf(function->second));
            }
        }
        order_.push_back(index);
        return sums_[index] = sum;
    }

    const Program& program_;
    std::map<UInt32, const Data*> constants_; // by offset in the setup's store
    std::vector<double> sums_;                // of the bodies; below 0: not known yet
    std::vector<std::vector<std::pair<std::size_t, double>>> invoked_;
    std::vector<std::size_t> order_; // a body comes after those that it invokes
    std::vector<std::size_t> roots_; // bodies that run for a sample of their own
};

} // namespace

WorkEstimate EstimateWork(const Program& program)
{
    return Estimator(program).Estimate();
}

std::string WorkComplaint(const Program& program, std::string_view insistence)
{
    const WorkEstimate estimate = EstimateWork(program);
    if (estimate.sum <= kMostEvaluations)
        return {};
    std::map<std::string_view, double> byName; // a described node is several
    for (std::size_t i = 0; i < estimate.evaluations.size(); ++i)
        byName[program.nodeNames[i]] += estimate.evaluations[i];
    byName.erase(""); // conversions
    std::vector<std::pair<std::string_view, double>> nodes(byName.begin(), byName.end());
    std::stable_sort(nodes.begin(), nodes.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    std::string text = fmt::format("takes about {:.2g} evaluations a sample, and no more than {:.0g} are made without "
                                   "{}; the nodes evaluated most are ",
        estimate.sum, kMostEvaluations, insistence);
    for (std::size_t i = 0; i < std::min<std::size_t>(nodes.size(), 3); ++i)
        text += fmt::format("{}nodes.{}", i == 0 ? "" : ", ", nodes[i].first);
    return text;
}

} // namespace velto::host
