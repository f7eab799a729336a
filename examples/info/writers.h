#pragma once

#include <tarvo/tarvo.h>

#include <string>
#include <vector>

using Texts = std::vector<CString>;

/// How a fact, or a section of facts, is called in JSON and for people.
struct Name
{
    const char* key;
    const char* label;
};

/// Takes the facts of a report, in their order, and makes one text of them, in UTF-8.
///
/// A report consists of sections. A section holds one thing or a list of things, and a thing its facts, the first of
/// which names the thing in a list.
class Writer
{
public:
    enum class Section
    {
        thing,
        list
    };

    virtual ~Writer() = default;

    virtual void BeginSection(Name name, Section section) = 0;
    virtual void BeginThing() = 0;
    virtual void EndThing() = 0;
    virtual void EndSection() = 0;

    void AddUnknown(Name name) { add(name, "unknown", "null"); }
    void AddFlag(Name name, bool value);
    void AddNumber(Name name, unsigned __int64 value);
    void AddText(Name name, const CString& value);
    void AddTexts(Name name, const Texts& values);

    /// All that was written.
    virtual std::string GetOutput() const = 0;

protected:
    /// Adds a fact, whose value is given in both forms.
    virtual void add(Name name, const std::string& text, const std::string& json) = 0;
};

/// A line for each fact.
class TextWriter : public Writer
{
public:
    void BeginSection(Name name, Section section) override;
    void BeginThing() override { m_indented = false; }
    void EndThing() override {}
    void EndSection() override {}
    std::string GetOutput() const override { return m_output; }

protected:
    void add(Name name, const std::string& text, const std::string& json) override;

private:
    std::string m_output;
    Section m_section = Section::thing;
    bool m_indented = false; ///< Behind the name of a thing in a list.
};

/// One JSON object.
class JsonWriter : public Writer
{
public:
    void BeginSection(Name name, Section section) override;
    void BeginThing() override;
    void EndThing() override;
    void EndSection() override;
    std::string GetOutput() const override { return m_output + "\n}\n"; }

protected:
    void add(Name name, const std::string& text, const std::string& json) override;

private:
    void separate(const char* lineBreak);

    std::string m_output = "{";
    Section m_section = Section::thing;
    bool m_first = true; ///< In what was begun last.
};
