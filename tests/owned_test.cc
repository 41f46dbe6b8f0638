#include "util/owned.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace faxtray {

static bool is_open(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

TEST(Owned, DescriptorIsClosedByItsLastOwner)
{
    int fd = open("/dev/null", O_RDONLY);
    {
        unique_fd first(fd);
        unique_fd second(std::move(first));
        EXPECT_FALSE(first);
        EXPECT_TRUE(is_open(second.get()));
    }
    EXPECT_FALSE(is_open(fd));
}

}  // namespace faxtray
