# OpenImageIO::OpenImageIO, without the directory of a package that Debian's target names and does not need.
find_package(OpenImageIO REQUIRED)
get_target_property(oiio_includes OpenImageIO::OpenImageIO INTERFACE_INCLUDE_DIRECTORIES)
list(FILTER oiio_includes EXCLUDE REGEX "opencv4")
set_target_properties(OpenImageIO::OpenImageIO PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${oiio_includes}")
