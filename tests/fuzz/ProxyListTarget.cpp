// profiles.ini, and what the preferences of a profile and the system's setting make of the proxy lists.
#include <windows.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"
#include "proxy/MozillaProfile.h"
#include "proxy/Profile.h"
#include "proxy/ProxyInfo.h"
#include "proxy/SystemProxy.h"

namespace
{

constexpr std::string_view kIniPieces[] = {
    "Path=",
    "Path",
    "=",
    "path=",
    "PPath=",
    "Path=Path=",
    "\n",
    "\r\n",
    "[Profile0]\n",
    "Profiles/a.default",
    "/",
    "\\",
    " ",
    "x",
    "Pat",
    "h=",
    "\xE9",
};

std::string ModelOfIni(const std::string& ini)
{
    const size_t key = ini.find("Path=");
    const size_t end = key != std::string::npos ? ini.find('\n', key) : key;
    return end != std::string::npos ? Shown(ini.substr(key + 5, end - key - 5)) : "none";
}

constexpr std::string_view kPrefix = "network.proxy.";
constexpr std::string_view kNames[] = {"type",          "http",          "http_port",  "ssl",
                                       "ssl_port",      "socks",         "socks_port", "socks_version",
                                       "no_proxies_on", "autoconfig_url"};
constexpr std::string_view kValues[] = {"",
                                        "1",
                                        "2",
                                        "0",
                                        "5",
                                        "4",
                                        " 5",
                                        "5x",
                                        "-1",
                                        "p",
                                        "proxy.example",
                                        "8080",
                                        "a b",
                                        "localhost, 127.0.0.1",
                                        "file:///C:/p.pac",
                                        ":///",
                                        ":////",
                                        "::///://",
                                        "http://h/p",
                                        ";",
                                        "=",
                                        "4294967297",
                                        "\xE9"};

using Settings = std::map<std::string, std::string>;

std::wstring Wide(const std::string& text)
{
    wchar_t wide[256] = {};
    MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, wide, 256);
    return wide;
}

// Blanks, a sign and digits; the numbers here do not run over in their first 32 bits but one.
unsigned Number(const std::string& text)
{
    size_t at = text.find_first_not_of(' ');
    const bool bNegative = at < text.size() && text[at] == '-';
    at += bNegative ? 1 : 0;
    unsigned long long number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
    {
        number = number * 10 + static_cast<unsigned>(text[at] - '0');
    }
    return static_cast<unsigned>(bNegative ? 0 - number : number);
}

class CModel
{
public:
    explicit CModel(const Settings& settings) : m_settings(settings)
    {
        type = Has("type") ? Number(m_settings.at("type")) : 5;
        if (type == 1)
        {
            Add("http", L"http=");
            Add("ssl", L"https=");
            Add("socks",
                Has("socks_version") && Number(m_settings.at("socks_version")) == 5 ? L"socks5=" : L"socks=");
            bypass = Has("no_proxies_on") ? Wide(m_settings.at("no_proxies_on")) : L"";
        }
        else if (type == 2 && Has("autoconfig_url"))
        {
            const std::wstring text = Wide(m_settings.at("autoconfig_url"));
            for (size_t at = 0; at < text.size(); ++at)
            {
                script += text[at];
                if (text.compare(at, 4, L":///") == 0)
                {
                    script += L"//";
                    at += 3;
                }
            }
        }
    }

    unsigned type = 0;
    std::wstring list;
    std::wstring bypass;
    std::wstring script;

private:
    bool Has(const std::string& name) const { return m_settings.count(name) != 0; }

    void Add(const std::string& name, const wchar_t* pszProtocol)
    {
        if (Has(name))
        {
            list += pszProtocol + Wide(m_settings.at(name));
            list += Has(name + "_port") ? L":" + Wide(m_settings.at(name + "_port")) : L"";
            list += L";";
        }
    }

    const Settings& m_settings;
};

std::string CheckFirefox(CChoices& choices)
{
    Settings settings;
    std::string text;
    for (const std::string_view name : kNames)
    {
        if (!choices.OneIn(3))
        {
            std::string value(kValues[choices.Between(0, static_cast<int>(std::size(kValues)) - 1)]);
            value = name == "type" && choices.OneIn(2) ? "1" : value;
            settings[std::string(name)] = value;
            text += "user_pref(\"" + std::string(kPrefix) + std::string(name) + "\", \"" + value + "\");\n";
        }
    }
    CProfile profile;
    std::string copy = text;
    profile.Parse(copy);
    CProxyInfo info;
    info.TakePreferences(profile);
    const CModel model(settings);
    const std::string what = Shown(text);
    return Difference(what + ", type", std::to_string(model.type), std::to_string(info.m_dwProxyType)) +
           Difference(what + ", list", Shown(model.list),
                      Shown(std::wstring_view(info.m_strManual.c_str()))) +
           Difference(what + ", bypass", Shown(model.bypass),
                      Shown(std::wstring_view(info.m_strBypass.c_str()))) +
           Difference(what + ", script", Shown(model.script),
                      Shown(std::wstring_view(info.m_strAutoURL.c_str())));
}

constexpr std::wstring_view kServerPieces[] = {L"http=", L"https=", L"ftp=", L"ftps=", L"gopher=", L"socks=",
                                               L"http",  L"=",      L"a:1",  L";",     L"\\",      L"/",
                                               L"\\\\",  L"//",     L" ",    L"x",     L"HTTP="};

std::string CheckSystem(CChoices& choices)
{
    const std::wstring value = choices.Pieces(kServerPieces, 8);
    bool bNamed = false;
    for (const wchar_t* pszProtocol : {L"ftp=", L"gopher=", L"http=", L"https=", L"socks="})
    {
        bNamed = bNamed || value.find(pszProtocol) != std::wstring::npos;
    }
    size_t at = 0;
    for (const wchar_t separator : {L'/', L'\\'})
    {
        while (at < value.size() && value[at] == separator)
        {
            ++at;
        }
    }
    const std::wstring expected = (bNamed ? L"\\" : L"http=\\") + value.substr(at);
    return Difference(Shown(value), Shown(expected),
                      Shown(std::wstring_view(ManualListOf(value.c_str()).c_str())));
}

}  // namespace

std::string CheckProfilesIni(std::string_view input)
{
    CChoices choices(input);
    const std::string ini = choices.Pieces(kIniPieces, 40);
    const std::unique_ptr<char[]> block(new char[ini.size() + 1]);
    std::memcpy(block.get(), ini.c_str(), ini.size() + 1);
    std::string value;
    const bool bFound = FindFirstProfile(block.get(), value);
    return Difference(Shown(ini), ModelOfIni(ini), bFound ? Shown(value) : "none");
}

std::string CheckProxyList(std::string_view input)
{
    CChoices choices(input);
    return choices.OneIn(3) ? CheckSystem(choices) : CheckFirefox(choices);
}
