// Owner of the headers that test programs share precompiled.
int main() { return 0; }
