// Does nothing. Linked with the system's libraries that kelsh is linked with, it shows what
// starting them costs.
int main() {
    return 0;
}
