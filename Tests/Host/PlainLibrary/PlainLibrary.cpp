// Code that loads and is no pane.

extern "C" int answer() {
    return 42;
}
