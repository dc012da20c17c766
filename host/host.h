// The front door of the host: from a document to a graph that can be sampled.
//
//     velto::host::SetResourceDirectory("resource");
//     std::shared_ptr<velto::host::Module> module;
//     velto::host::Module::Load("modules/shadernodes.module", module);
//     velto::host::Graph graph;
//     velto::host::Diagnostics diagnostics;
//     if (velto::host::LoadGraph(text, module, {}, diagnostics, graph)) ...
//     graph.setup->Run();
//     std::unique_ptr<velto::host::Sampler> sampler; // from arrays to arrays, see runtime/sampler.h
//     velto::host::Sampler::Create(*graph.setup, shared, sampler);
//     sampler->Sample(count, fields, values);
#pragma once

#include "host/bake/bake.h"
#include "host/bake/changes.h"
#include "host/bake/demand.h"
#include "host/bake/explain.h"
#include "host/bake/pictures.h"
#include "host/bake/samples.h"
#include "host/bake/work.h"
#include "host/fuse/fuse.h"
#include "host/graph/describe.h"
#include "host/loader/module.h"
#include "host/runtime/graph.h"
#include "host/runtime/sampler.h"
#include "host/system/fileaccess.h"
#include "host/system/memory.h"
#include "host/system/output.h"
#include "host/text/url.h"
