// Imports what the language's runtime imports into any program of this project, and nothing else.
#include <stdexcept>

int wmain()
{
    try
    {
        throw std::runtime_error("caught below");
    }
    catch (const std::exception&)
    {
        return 0;
    }
}
