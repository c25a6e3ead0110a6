// Does nothing, with the libraries of the service: what a process costs before its own first line.
int main() {}
