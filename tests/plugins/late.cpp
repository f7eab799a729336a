// A module whose static object still raises when the process ends.

#include <tarvo/core/ckexception.h>

namespace
{
const struct Late
{
    ~Late()
    {
        try
        {
            throw CkExceptionStream(CK_SOURCE_FILE, 1, CkException(CK_SOURCE_FILE, 2));
        }
        catch (const CkException&)
        {
        }
    }
} late;
} // namespace
