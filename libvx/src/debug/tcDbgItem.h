// Debug items: named numbers that can be listed, read and changed while the process runs.
//
// Code registers a number and keeps reading it through the pointer that AddItem or FindItem
// returned; an engineer changes it by name, from inside the process or over TCP (StartServer).
//
// The server takes one request for each connection, in one segment of at most 1024 bytes:
//   LIST             one line "name = value [description]\n" and a zero byte for each item
//   GET:name         the value as text and a zero byte
//   SET:name=value   no answer
// There is no answer to anything else, nor for names that are not known. Requests have no line end.
// Environment, read by StartServer, except in programs with raised privileges:
//   DBGITEM_PORTNUM  the port instead of tcDbgItemPort
//   DBGITEM_BIND     the local address to listen on instead of all, dotted
//   DBGITEM_ALLOW    who may connect: addresses, separated by commas, each with "/" and a prefix
//                    length or dotted mask where it is a network; others are closed unread. An
//                    entry that cannot be read admits nobody.
// Programs with raised rights, set-user-id ones for example, look at none of them.
// The server prints what it does on standard output and its failures on standard error.
#ifndef TCDBGITEM_H
#define TCDBGITEM_H

#include "vxexport.h"

#include <pthread.h>

#include <atomic>
#include <iosfwd>
#include <map>
#include <string>

// A number with a description.
// Threads: registering, finding, setting and the server may run in parallel. A value is one aligned
// 32-bit word, written whole; readers that want no data race read it with an atomic load. c_str is
// for one thread at a time. Locks: one lock of the class guards the registry.
// Owns: its value. Registered items are never deleted by the library, and must not be deleted.
class VX_EXPORT tcDbgItem
{
public:
    typedef std::map<std::string, tcDbgItem*> tcDbgItemMap;

    // No value, described as "Not Set", not registered.
    tcDbgItem();

    // Sets `variable` to `value` as well, once: the item has its own copy. Registering replaces an
    // earlier item of that name.
    tcDbgItem(std::string name, int& variable, int value, std::string description,
              bool isRegistered = true);
    tcDbgItem(std::string name, int value, std::string description, bool isRegistered = true);
    tcDbgItem(std::string name, float value, std::string description, bool isRegistered = true);

    // Copies value, type and description; the copy is not registered.
    tcDbgItem(const tcDbgItem& other);
    tcDbgItem& operator=(const tcDbgItem& other);
    virtual ~tcDbgItem();

    // ---- Registry -----------------------------------------------------------------------------
    // Null where there is no memory for an item.

    // Registers a new item, which lives as long as the process, and returns its value to read.
    static int* AddItem(std::string name, int value, std::string description);
    static float* AddItem(std::string name, float value, std::string description);
    static int* AddItemRetPtr(std::string name, int value, std::string description);

    // The value of the registered item, whatever its type; registers one with `value` when there
    // is none.
    static int* FindItem(std::string name, int value);
    static float* FindItem(std::string name, float value);

    // Stores the bits of `value`, whatever the type of the item. A name that is not known is
    // reported on standard output.
    static void SetItem(std::string name, int value);
    static void SetItem(std::string name, float value);

    // The registry itself, without its lock.
    static tcDbgItemMap& GetMap();

    // ---- Server -------------------------------------------------------------------------------

    // Starts the server's thread; does nothing when one was started before, also when that has
    // ended since. Where there is no thread to be had, that is logged.
    static void StartServer();

    // The server ends after its next connection.
    static void StopServer();

    // ---- One item -----------------------------------------------------------------------------

    // The value as text ("%d", "%f" or "No value set!"), in a buffer that the next call overwrites.
    char const* c_str();

    // Sets the value from decimal text; text that is no number gives 0.
    void FromStr(char const* text);

    std::string Describe() const;

    // The value as c_str has it, without the item's buffer.
    std::string Text() const;

    // Writes the value in the stream's own format.
    void Write(std::ostream& os) const;

    // ---- Class scope --------------------------------------------------------------------------

    static std::atomic<pthread_t> mhThreadId; // 0 until a server was started
    static std::atomic<bool> mbThreadDone;
    static std::atomic<unsigned short> tcDbgItemPort;

    // How long a client may stay silent, in milliseconds (10000). One that takes nothing of its
    // answer for two seconds is given up. With 64 connected, the one that has been silent longest,
    // or else the one that does not take its answer, makes room for one that waits.
    static std::atomic<int> snClientPatience;

private:
    enum teType { eNoValue = 0, eInt = 1, eFloat = 2 };
    union tuValue {
        int mnInt;
        float mnFloat;
    };

    static tcDbgItem* FindRegistered(const std::string& name);
    template <typename tNumber>
    static tcDbgItem* Make(const std::string& name, tNumber value, std::string&& description);
    template <typename tNumber>
    static tuValue* Add(const std::string& name, tNumber value, std::string&& description);
    template <typename tNumber>
    static tuValue* FindOrAdd(const std::string& name, tNumber value);
    template <typename tNumber>
    static void StoreByName(const std::string& name, tNumber value);
    void Register(const std::string& name);
    void Store(int value);
    void Store(float value);
    tuValue Load() const;

    char maText[128];
    tuValue mValue;
    teType meType;
    std::string msDescription;
};

VX_EXPORT std::ostream& operator<<(std::ostream& os, const tcDbgItem& item);

extern "C" {

// Writes a line for each registered item to standard output: name, value, description.
VX_EXPORT void ListDbgItems();
}

#endif
