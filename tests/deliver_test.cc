// Names on the way to an inbox that no received fax has. Deliveries as clients see them are in the scenarios.
#include "deliver/deliver.h"

#include <gtest/gtest.h>
#include <sys/param.h>

#include <filesystem>

#include "deliver/convert.h"
#include "support/site.h"

namespace faxtray {

TEST(Delivery, TemporaryExtensionsAreDropped)
{
    for (auto [name, converted] : {std::pair("/a/x.fax.0412tmp", "/a/x.tif"),
                                   {"/a/x.412tmp", "/a/x.412tmp.tif"},
                                   {"/a/x.04125tmp", "/a/x.04125tmp.tif"},
                                   {"/a/x.0412tmp ", "/a/x.0412tmp .tif"},
                                   {"/a.0412tmp/x", "/a.0412tmp/x.tif"},
                                   {"", ".tif"},
                                   {"/a/x.fax", "/a/x.tif"},
                                   {"/a/x.faxes", "/a/x.faxes.tif"},
                                   {"/a.fax/x", "/a.fax/x.tif"}})
        EXPECT_EQ(converted_name(name, ".tif"), converted);
    char path[MAXPATHLEN], destination[4096];
    const site s;
    const std::string inbox = s.inbox("alsmith");
    std::filesystem::create_directory(inbox);
    s.add(s.incoming(), "y.fax.0412tmp", "a fax");
    av_list_ptr record(new_av_list("Al Smith"));
    av_put(record.get(), "delivery_dir_root", (s / "faxtrayes").c_str());
    av_put(record.get(), "delivery_method", "faxtray");
    snprintf(path, sizeof path, "%s/y.fax.0412tmp", s.incoming().c_str());
    EXPECT_EQ(route_fax_file(record.get(), path, destination), 0);
    EXPECT_EQ(destination, inbox + "/y.fax");
}

}  // namespace faxtray
