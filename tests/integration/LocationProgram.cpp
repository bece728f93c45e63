// A program that holds the library's code itself, and asks it already before main.

extern "C" void PrintLocation();

namespace
{

struct Early
{
    Early() { PrintLocation(); }
};

const Early EARLY;

} // namespace

int main()
{
    PrintLocation();
}
