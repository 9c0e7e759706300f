#include "page/page_files.h"

// The bytes of a file of server/web, behind a name of the linker's.
#define VX_PAGE_FILE(name, file)                                                                   \
    asm(".section .rodata\n.hidden " #name "Begin\n.global " #name "Begin\n" #name "Begin:\n"      \
        ".incbin \"" VXCAMD_WEB "/" file "\"\n.hidden " #name "End\n.global " #name "End\n" #name  \
        "End:\n.byte 0\n.previous\n");                                                             \
    extern "C" const char name##Begin[];                                                           \
    extern "C" const char name##End[];

VX_PAGE_FILE(pageIndex, "index.html")
VX_PAGE_FILE(pageStyle, "style.css")
VX_PAGE_FILE(pageMain, "page.js")
VX_PAGE_FILE(pageServer, "server.js")
VX_PAGE_FILE(pageCameras, "cameras.js")
VX_PAGE_FILE(pageSequences, "sequences.js")
VX_PAGE_FILE(pageFigures, "figures.js")
VX_PAGE_FILE(pageGestures, "gestures.js")
VX_PAGE_FILE(pageGraphs, "graphs.js")
VX_PAGE_FILE(pageGraphics, "graphics_painter.js")
VX_PAGE_FILE(pageMeasure, "measure.js")
VX_PAGE_FILE(pagePart, "part.js")
VX_PAGE_FILE(pageProperties, "properties.js")
VX_PAGE_FILE(pageSoftware, "software_painter.js")
VX_PAGE_FILE(pageStar, "star.js")
VX_PAGE_FILE(pageValues, "values.js")
VX_PAGE_FILE(pageView, "view.js")
VX_PAGE_FILE(pagePlot, "vendor/uPlot.esm.js")
VX_PAGE_FILE(pagePlotStyle, "vendor/uPlot.min.css")
VX_PAGE_FILE(pagePlotLicence, "vendor/uPlot.LICENSE")

#undef VX_PAGE_FILE

namespace vxcam {

namespace {

struct PageFile {
    const char* path;
    const char* type;
    const char* begin;
    const char* end;
};

constexpr const char* kScript = "text/javascript; charset=utf-8";
constexpr const char* kStyle = "text/css; charset=utf-8";
// Nothing comes from elsewhere, and nobody frames the page.
constexpr const char* kPolicy = "default-src 'self'; img-src 'self' data:; connect-src 'self' ws: "
                                "wss:; frame-ancestors 'none'; base-uri 'none'";

const PageFile kFiles[] = {
    {"/", "text/html; charset=utf-8", pageIndexBegin, pageIndexEnd},
    {"/style.css", kStyle, pageStyleBegin, pageStyleEnd},
    {"/page.js", kScript, pageMainBegin, pageMainEnd},
    {"/server.js", kScript, pageServerBegin, pageServerEnd},
    {"/cameras.js", kScript, pageCamerasBegin, pageCamerasEnd},
    {"/sequences.js", kScript, pageSequencesBegin, pageSequencesEnd},
    {"/figures.js", kScript, pageFiguresBegin, pageFiguresEnd},
    {"/gestures.js", kScript, pageGesturesBegin, pageGesturesEnd},
    {"/graphs.js", kScript, pageGraphsBegin, pageGraphsEnd},
    {"/graphics_painter.js", kScript, pageGraphicsBegin, pageGraphicsEnd},
    {"/measure.js", kScript, pageMeasureBegin, pageMeasureEnd},
    {"/part.js", kScript, pagePartBegin, pagePartEnd},
    {"/properties.js", kScript, pagePropertiesBegin, pagePropertiesEnd},
    {"/software_painter.js", kScript, pageSoftwareBegin, pageSoftwareEnd},
    {"/star.js", kScript, pageStarBegin, pageStarEnd},
    {"/values.js", kScript, pageValuesBegin, pageValuesEnd},
    {"/view.js", kScript, pageViewBegin, pageViewEnd},
    {"/vendor/uPlot.esm.js", kScript, pagePlotBegin, pagePlotEnd},
    {"/vendor/uPlot.min.css", kStyle, pagePlotStyleBegin, pagePlotStyleEnd},
    {"/vendor/uPlot.LICENSE", "text/plain; charset=utf-8", pagePlotLicenceBegin,
     pagePlotLicenceEnd},
};

} // namespace

std::optional<HttpResponse> pageFile(const std::string& path)
{
    for (const PageFile& file : kFiles) {
        if (path != file.path) continue;
        HttpResponse response;
        response.type = file.type;
        response.body.assign(file.begin, file.end);
        response.headers = {{"Content-Security-Policy", kPolicy},
                            {"Referrer-Policy", "no-referrer"}};
        return response;
    }
    return {};
}

} // namespace vxcam
