// This program exists only for the precompiled header of the suites.
int main() {}
