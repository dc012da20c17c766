#include "graph.h"

#include <fmt/format.h>

namespace velto::python
{

namespace
{

// What the thread that bakes last said.
class LastProgress
{
public:
    void Set(double share) { share_.store(share, std::memory_order_relaxed); }
    double Share() const { return share_.load(std::memory_order_relaxed); }

private:
    std::atomic<double> share_ = 0.0;
};

host::BakeOptions OptionsOf(const BakeRequest& request)
{
    host::BakeOptions options;
    options.view.width = request.width;
    options.view.height = request.height;
    options.view.shape = request.isSphere ? host::BakeShape::Sphere : host::BakeShape::Plane;
    options.view.supersample = request.supersample;
    if (request.crop)
    {
        const auto [x, y, width, height] = *request.crop;
        options.window = {x, y, width, height};
    }
    else
        options.window = {0, 0, request.width, request.height};
    options.seconds = request.time;
    options.framesPerSecond = request.frameRate;
    options.threads = ThreadsFor(request.threads);
    return options;
}

void Check(const BakeRequest& request)
{
    const auto isSide = [](int side) { return side >= 1 && side <= host::kMaxPictureSide; };
    if (!isSide(request.width) || !isSide(request.height))
        throw py::value_error(fmt::format("size: expected a width and a height from 1 to {}, got {} x {}",
            host::kMaxPictureSide, request.width, request.height));
    if (request.supersample < 1 || request.supersample > 64)
        throw py::value_error(fmt::format("supersample: expected 1 to 64, got {}", request.supersample));
    if (!request.crop)
        return;
    const auto [x, y, width, height] = *request.crop;
    if (x < 0 || y < 0 || width < 1 || height < 1 || width > request.width - x || height > request.height - y)
        throw py::value_error(fmt::format(
            "crop: {} x {} at {}, {} is not inside of {} x {}", width, height, x, y, request.width, request.height));
}

py::array_t<float> NewPicture(const host::BakeWindow& window, int channels)
{
    std::vector<py::ssize_t> shape{window.height, window.width};
    if (channels > 1)
        shape.push_back(channels);
    return py::array_t<float>(shape);
}

} // namespace

py::dict PyGraph::Bake(const BakeRequest& request, const py::object& progress)
{
    Check(request);
    py::dict pictures;
    const Work work;
    const GraphLock::Alone lock(lock_);
    if (isOutdated_)
        CheckDemands();
    samplers_.clear();
    host::BakeOptions options = OptionsOf(request);
    std::vector<host::BakeTarget> targets;
    for (const std::size_t output : ChosenOutputs(request.outputs, true))
    {
        const host::OutputPlan& plan = graph_.program->outputs[output];
        py::array_t<float> picture = NewPicture(options.window, host::ChannelsOf(plan.type));
        host::BakeTarget target;
        target.output = output;
        target.pixels = picture.mutable_data();
        targets.push_back(std::move(target));
        pictures[py::str(plan.name)] = std::move(picture);
    }
    std::atomic<bool> stop = false;
    LastProgress last;
    options.stop = &stop;
    options.progress = [&](const host::BakeProgress& at) { last.Set(at.share); };
    host::BakeStatistics statistics;
    Result baked;
    std::function<void()> report;
    if (!progress.is_none())
        report = [&] { progress(last.Share()); };
    isOutdated_ = true; // until the bake has run its setup
    RunInterruptibly(
        stop, [&] { baked = host::Bake(graph_, targets, options, statistics); }, report);
    if (baked.IsError())
    {
        const host::BakeFailure& failure = statistics.failure;
        FailedPlace place;
        place.node = failure.node;
        if (failure.hasPixel)
            place = {failure.node,
                (Int{failure.y} - options.window.y) * options.window.width + failure.x - options.window.x, failure.x,
                failure.y};
        ThrowEvaluationError(baked, place);
    }
    isOutdated_ = false;
    return pictures;
}

} // namespace velto::python
