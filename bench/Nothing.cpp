// Does nothing: started with and without the library, it shows what loading costs.
int main() {}
