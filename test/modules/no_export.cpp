// A library that is no module.
[[maybe_unused]] static const int nothing = 0;
