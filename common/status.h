// tStatus: whether an operation succeeded and, where it failed, why: the kind of failure, the system's error number
// where it gave one, and a sentence for people.
#ifndef KESTOVA_COMMON_STATUS_H
#define KESTOVA_COMMON_STATUS_H

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

class [[nodiscard]] tStatus
{
public:
    enum class eCode : std::uint8_t
    {
        eOk,
        eSystem,     // a system call failed: error() is its errno
        eDamaged,    // bytes are not what they have to be
        eRefused,    // what was asked for is not possible
        eCancelled,  // somebody ended the work
        eNoMemory
    };

    tStatus() = default;  // success
    tStatus(eCode code, std::string text) : m_code(code), m_text(std::move(text)) {}
    // A failed system call; `what`, where not empty, stands before the system's own words.
    static tStatus system(int error, const std::string& what = {})
    {
        tStatus status(eCode::eSystem, (what.empty() ? "" : what + ": ") + std::strerror(error));
        status.m_error = error;
        return status;
    }

    bool ok() const { return m_code == eCode::eOk; }
    explicit operator bool() const { return ok(); }
    eCode code() const { return m_code; }
    int error() const { return m_error; }
    const std::string& text() const { return m_text; }  // empty on success

    // The same failure with a file's or another name before its sentence; success stays success.
    tStatus of(const std::string& name) &&
    {
        if (!ok())
            m_text.insert(0, name + ": ");
        return std::move(*this);
    }

private:
    eCode m_code = eCode::eOk;
    int m_error = 0;
    std::string m_text;
};

#endif
