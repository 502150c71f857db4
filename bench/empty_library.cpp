// A library with nothing in it but an entry point.

extern "C" [[gnu::visibility("default")]] int Nothing();
extern "C" int Nothing() { return 0; }
