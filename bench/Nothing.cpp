// Empty program, to measure the cost of loading the library.
int main() {}
