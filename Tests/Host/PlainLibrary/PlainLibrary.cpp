// A library that can be loaded but is not a pane.

extern "C" int answer() {
    return 42;
}
