// The host of a camera, private to the library.
#ifndef TCHOST_H
#define TCHOST_H

#include <memory>
#include <string>

// What names the host, and the address this leads to, also when that changes while the camera is
// away.
//
// Threads: one at a time. Looking a name up goes on in a thread of its own, which may outlive this.
class tcHost
{
public:
    explicit tcHost(std::string text);
    ~tcHost();
    tcHost(const tcHost&) = delete;
    tcHost& operator=(const tcHost&) = delete;

    const std::string& Text() const { return msText; }

    // Whether the text is an IPv4 address of four numbers, or a host name: what else the system
    // would read as an address ("0", "127.1", "0x7f.1", "010.0.0.1"), an empty text and one with a
    // port lead where nobody means.
    bool IsAcceptable() const;

    // The address last known, as dotted text. A look-up that has found one since replaces it.
    const std::string& Address();
    void SetAddress(const char* address) { msAddress = address; }

    // Looks the name up anew, in the background, unless that goes on already or the text is an
    // address.
    void LookUp();

private:
    struct tsLookUp;

    std::string msText;
    std::string msAddress;
    bool mbIsName;
    std::shared_ptr<tsLookUp> mpLookUp; // shared with its thread
};

#endif
