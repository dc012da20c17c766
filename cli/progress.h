// How far a bake is, on stderr: a bar for people, lines of JSON for programs.
#pragma once

#include "session.h"

#include "host/bake/bake.h"

namespace velto::cli
{

enum class ProgressForm
{
    None,
    Bar,
    Json,
};

// `auto`, `always`, `never` or `json`.
ProgressForm ParseProgress(std::string_view text, const Streams& streams);

class Progress
{
public:
    Progress(const Streams& streams, ProgressForm form) : streams_(streams), form_(form) {}
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(const host::BakeProgress& progress, const std::string& name);

private:
    void ShowBar(const host::BakeProgress& progress, const std::string& name);
    void ShowJson(const host::BakeProgress& progress, const std::string& name);

    const Streams& streams_;
    ProgressForm form_;
    bool wasShown_ = false;
    double last_ = 0.0;
};

} // namespace velto::cli
