// Holds the precompiled headers of the tests; see tests/CMakeLists.txt.
int main() { return 0; }
