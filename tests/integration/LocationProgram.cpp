// A program that holds the library's code itself, and asks it already before main.

extern "C" void PrintLocation();

namespace
{

struct Early
{
    Early() { PrintLocation(); }
};

[[gnu::init_priority( 102 )]] const Early EARLY; // before all that has no priority

} // namespace

int main()
{
    PrintLocation();
}
