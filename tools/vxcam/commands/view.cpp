// vxcam view: a camera in the browser.
#include "failure.h"
#include "program.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

const char* const gsViewExamples =
    R"(  vxcam view                                  a simulated camera
  vxcam view 192.168.1.20:2000                until Ctrl-C, which is code 0 here
  vxcam view serial:1207 --no-browser         prints the address alone)";

namespace {

// Where this program stands, with a slash behind it; empty: not known.
std::string OwnFolder()
{
    std::array<char, 4096> path{};
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    const std::string text(path.data(), length > 0 ? static_cast<size_t>(length) : 0);
    return text.substr(0, text.rfind('/') + 1);
}

class tcView : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    tsCommonOptions mtCommon;
    int mnPort = 0;
    bool mbNoBrowser = false;
};

void tcView::Declare(tcCommandLine& line)
{
    DeclareTarget(line, &mtCommon);
    line.Option("-p,--port", &mnPort, "NUMBER", "where the page is, on loopback; 0: a free one")
        .Within(0, 65535);
    line.Flag("--no-browser", &mbNoBrowser, "open no browser");
}

// The server takes the place of this program: it prints the address, and ends with Ctrl-C.
void tcView::Run()
{
    std::vector<std::string> words{"vxcamd", mtCommon.target, "--listen",
                                   "127.0.0.1:" + std::to_string(mnPort)};
    if (!mbNoBrowser) words.emplace_back("--open");
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execv((OwnFolder() + "vxcamd").c_str(), arguments.data());
    ::execvp("vxcamd", arguments.data());
    throw tcFailure(eExitFile,
                    std::string("vxcamd, the server with the page, cannot be started: ") +
                        std::strerror(errno));
}

} // namespace

std::unique_ptr<tcVerb> MakeView()
{
    return std::make_unique<tcView>();
}
