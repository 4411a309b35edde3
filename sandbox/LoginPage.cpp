#include "LoginPage.h"

#include <cstdio>

namespace SorvelSandbox
{

namespace
{

std::string escape(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (char c : text)
    {
        switch (c)
        {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string page(const std::string& title, const std::string& body)
{
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\"><title>" + escape(title) +
           " - Sorvel sandbox</title></head>\n<body>\n" + body + "</body>\n</html>\n";
}

std::string duration(double seconds)
{
    const long whole = static_cast<long>(seconds + 0.5);
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    return text;
}

} // namespace

std::string renderAccountPage(const AccountRecord& account)
{
    std::string body = "<h1>" + escape(account.name) + "</h1>\n<p class=\"account\">Signed in as " +
                       escape(account.username) + " (account " + std::to_string(account.id) + ")</p>\n";
    body += "<p class=\"figures\">" + std::to_string(account.totalFans) + " fans, " +
            std::to_string(account.activePromos) + " active promotions</p>\n<h2>Products</h2>\n<ul class=\"products\">\n";
    for (const TitleRecord& title : account.titles)
        body += "<li data-title-id=\"" + std::to_string(title.id) + "\">" + escape(title.name) + " (" +
                std::to_string(title.tracks.size()) + " tracks)</li>\n";
    body += "</ul>\n";
    return page(account.name, body);
}

std::string renderProductPage(const AccountRecord& account, const TitleRecord& title)
{
    std::string body = "<h1>" + escape(title.name) + "</h1>\n<p class=\"artist\">" + escape(title.artistName) +
                       "</p>\n<p class=\"account\">Signed in as " + escape(account.username) + "</p>\n";
    if (!title.upc.empty())
        body += "<p class=\"upc\">UPC " + escape(title.upc) + "</p>\n";
    body += "<ol class=\"tracks\">\n";
    for (const TrackRecord& track : title.tracks)
        body += "<li data-track-id=\"" + std::to_string(track.id) + "\">" + escape(track.name) + " " +
                duration(track.duration) + (track.uploadStatus == 100 ? " uploaded" : "") + "</li>\n";
    body += "</ol>\n";
    return page(title.name, body);
}

std::string renderErrorPage(int status, const std::string& message)
{
    return page("Login refused", "<h1>Login refused</h1>\n<p class=\"status\">" + std::to_string(status) +
                                     "</p>\n<p class=\"reason\">" + escape(message) + "</p>\n");
}

} // namespace SorvelSandbox
