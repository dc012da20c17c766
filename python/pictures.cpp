#include "graph.h"

#include "host/picture/writer.h"

#include <fmt/format.h>

namespace velto::python
{

namespace
{

// `picture` is a C-ordered array of 3 axes.
void Write(const std::string& file, const py::array_t<float, py::array::c_style>& picture, int depth, int colorSpace)
{
    const host::PictureLayout layout{static_cast<int>(picture.shape(1)), static_cast<int>(picture.shape(0)),
        static_cast<int>(picture.shape(2)), 0, 0, 0, 0};
    const host::PictureEncoding encoding{
        static_cast<host::PixelDepth>(depth), static_cast<host::PictureColorSpace>(colorSpace)};
    const float* const pixels = picture.data();
    {
        TheModules();
        const Work work;
        std::atomic<bool> stop = false;
        Result written;
        RunInterruptibly(stop, [&] {
            written = [&]() -> Result {
                std::vector<std::unique_ptr<host::PictureWriter>> writers(1);
                VELTO_TRY(host::PictureWriter::Open(file, {}, layout, encoding, writers[0]));
                constexpr int kRows = 64;
                const std::size_t rowFloats =
                    static_cast<std::size_t>(layout.width) * static_cast<std::size_t>(layout.channels);
                for (int y = 0; y < layout.height && !stop; y += kRows)
                    VELTO_TRY(writers[0]->WriteRows(
                        pixels + static_cast<std::size_t>(y) * rowFloats, std::min(kRows, layout.height - y)));
                if (stop)
                    return {};
                VELTO_TRY(writers[0]->Complete());
                return host::PictureWriter::PutInPlace(writers);
            }();
        });
        if (written.IsError() && written.Kind() == error::kIllegalArgument.View())
            throw py::value_error(std::string(written.Message()));
        if (written.IsError())
        {
            PyErr_SetString(PyExc_OSError, std::string(written.Message()).c_str());
            throw py::error_already_set();
        }
    }
}

} // namespace

void AddPictures(py::module_& module)
{
    module.def("write", &Write);
}

} // namespace velto::python
