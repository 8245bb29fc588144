#include "host/core/SentNames.h"

#include "host/core/JournalFolder.h"
#include "host/core/UniqueNames.h"

#include <QtCore/QSet>

#include <algorithm>

namespace host {

namespace {

/// Tells the event's folders apart.
QString remoteFolder(const ExportChoices& choices, const std::optional<QString>& project) {
    return choices.autoCategories && project ? *project : choices.category.value_or(QString());
}

} // namespace

SentNames SentNames::inJournals(const QString& folder, const QString& service, const ExportChoices& choices) {
    SentNames names;
    const std::vector<FoundJournal> journals =
        journalsIn(folder, [&](const ExportRecord& record) { return isOfEvent(record, service, choices); });
    std::for_each(journals.rbegin(), journals.rend(), [&](const FoundJournal& journal) {
        if (journal.record)
            names.add(*journal.record);
    });
    return names;
}

void SentNames::add(const ExportRecord& record) {
    for (const SentName& sent : record.sentBefore)
        add(sent);
    for (const RecordedImage& image : record.images)
        add({remoteFolder(record.choices, image.project), image.name, image.source, traceOf(image, record)});
}

void SentNames::add(SentName sent) {
    const Place place{sent.folder, stemKey(sent.name)};
    std::vector<Place>& places = placesOf_[{sent.folder, sent.source}];
    std::erase(places, place);
    places.push_back(place);
    sent_[place] = std::move(sent);
}

const SentName* SentNames::nameOf(const QString& folder, const QByteArray& source) const {
    const auto places = placesOf_.find({folder, source});
    if (places == placesOf_.end())
        return nullptr;
    const auto found = std::find_if(places->second.rbegin(), places->second.rend(), [&](const Place& place) {
        // Another photograph may have been sent under it since.
        const SentName& sent = sent_.at(place);
        return sent.source == source && isStillThere(sent.source, sent.trace);
    });
    return found == places->second.rend() ? nullptr : &sent_.at(*found);
}

void SentNames::giveNames(std::vector<RecordedImage>& images, const ExportChoices& choices) const {
    QSet<QString> folders;
    for (const RecordedImage& image : images)
        folders.insert(remoteFolder(choices, image.project));
    QSet<QString> reserved;
    for (const auto& [place, sent] : sent_) {
        if (folders.contains(place.first))
            reserved.insert(place.second);
    }

    std::vector<std::size_t> unnamed;
    std::vector<QString> names;
    QSet<QString> given;
    for (std::size_t i = 0; i < images.size(); ++i) {
        const SentName* const sent = nameOf(remoteFolder(choices, images[i].project), images[i].source);
        const QString name = sent ? sent->name : images[i].name;
        // Two names that are equal in two folders would meet in the plug-in's.
        if (sent && !given.contains(stemKey(name))) {
            given.insert(stemKey(name));
            images[i].name = name;
        } else {
            unnamed.push_back(i);
            names.push_back(name);
        }
    }
    names = uniqueNames(names, reserved);
    for (std::size_t i = 0; i < unnamed.size(); ++i)
        images[unnamed[i]].name = names[i];
}

const SentName* SentNames::replacedBy(const RecordedImage& image, const ExportChoices& choices) const {
    const auto found = sent_.find({remoteFolder(choices, image.project), stemKey(image.name)});
    if (found == sent_.end() || preparedName(found->second.name) != preparedName(image.name))
        return nullptr;
    const SentName& sent = found->second;
    return sent.source == image.source && isStillThere(sent.source, sent.trace) ? nullptr : &sent;
}

std::vector<SentName> SentNames::all() const {
    std::vector<SentName> all;
    all.reserve(sent_.size());
    for (const auto& [place, sent] : sent_)
        all.push_back(sent);
    return all;
}

} // namespace host
