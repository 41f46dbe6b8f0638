// site_programs: the programs of a site that deliveries run.
#pragma once

namespace faxtray {

inline constexpr char mail_agent_file[] = "/usr/lib/sendmail";
inline constexpr char tiff_converter[] = "utils/tiffconv";  // below $ONDRIXHOME or the current directory
inline constexpr char postscript_converter[] = "rasterps2";
inline constexpr char pdf_converter[] = "distill";

}  // namespace faxtray
