#include <mirovane/recognisers.h>

/// Another vendor's library, which finds its model nowhere.
mirovane::HandupClassify *mirovane::HandupClassify::create(const std::string &, const std::string &)
{
    return nullptr;
}
