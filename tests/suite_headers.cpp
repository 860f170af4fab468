// Nothing but the precompiled header of the suites is wanted of this program.
int main() {}
