// A document that is sampled place by place, on one instance.
#pragma once

#include "eval.h"

#include "host/runtime/instance.h"

namespace velto::test
{

class SampledDocument
{
public:
    explicit SampledDocument(std::string_view document, const host::GraphOptions& options = {})
    {
        isGood_ = Load(document, graph_, options) && graph_.setup->Run().IsOk() &&
                  host::Instance::Create(*graph_.setup, instance_).IsOk();
        EXPECT_TRUE(isGood_) << document;
    }

    // The first output of a sample of that size; null when it fails.
    template <class T = void>
    const T* At(const Vector& uvw, double footprint = 0, double seconds = 0)
    {
        if (!isGood_)
            return nullptr;
        ShadingContext& context = instance_->Context();
        context.uvwValid = true;
        context.uvw = uvw;
        context.uvwPlusDeltaU = {uvw.x + footprint, uvw.y, uvw.z};
        context.uvwPlusDeltaV = {uvw.x, uvw.y + footprint, uvw.z};
        context.time.seconds = seconds;
        return instance_->Evaluate().IsOk() ? static_cast<const T*>(instance_->Output(0)) : nullptr;
    }

    const host::Graph& Graph() const { return graph_; }
    const host::Instance& Instance() const { return *instance_; }

private:
    host::Graph graph_;
    std::unique_ptr<host::Instance> instance_;
    bool isGood_ = false;
};

} // namespace velto::test
