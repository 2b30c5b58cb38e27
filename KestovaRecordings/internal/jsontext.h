// tJsonText: an object or an array as text, from the events of a parser that has checked it.
#ifndef KESTOVA_RECORDINGS_INTERNAL_JSONTEXT_H
#define KESTOVA_RECORDINGS_INTERNAL_JSONTEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace recordings
{
class tJsonText
{
public:
    bool isOpen() const { return m_depth != 0; }
    std::size_t depth() const { return m_depth; }
    std::size_t size() const { return m_text.size(); }

    void open(char bracket)
    {
        separate();
        m_text += bracket;
        ++m_depth;
    }
    // Returns whether it was the outermost one: the text is whole.
    bool close(char bracket)
    {
        m_text += bracket;
        return --m_depth == 0;
    }
    void key(std::string_view text)  // as JSON has it, with its quotes
    {
        separate();
        m_text.append(text) += ':';
    }
    void value(std::string_view text)
    {
        separate();
        m_text += text;
    }
    std::string take() { return std::exchange(m_text, {}); }

private:
    void separate()
    {
        if (!m_text.empty() && m_text.back() != '{' && m_text.back() != '[' && m_text.back() != ':')
            m_text += ',';
    }

    std::string m_text;
    std::size_t m_depth = 0;
};
}  // namespace recordings

#endif
