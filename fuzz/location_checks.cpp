#include "location_checks.hpp"

#include "require.hpp"

#include <foundation/network/iri.hpp>

using fl::i18n::ustring;
using foundation::storage::provider::StorageIRI;

void checkSame(StorageIRI const& a, StorageIRI const& b) {
    require(a == b && b == a);
    require(!(a < b) && !(b < a));
    require(a.hash() == b.hash());
    require(a.getScheme() == b.getScheme());
    require(a.getAuthorityView() == b.getAuthorityView());
    require(a.hasPath() == b.hasPath());
    require(a.getDecodedPath() == b.getDecodedPath());
    require(a.getResolvedPath() == b.getResolvedPath());
    require(a.getName() == b.getName());
    require(a.hasQuery() == b.hasQuery());
    require(a.hasFragment() == b.hasFragment());
    require(a.hasInnerIRI() == b.hasInnerIRI());
    if (a.hasInnerIRI()) {
        require(a.getInnerIRI() == b.getInnerIRI());
    }
}

void checkLocation(StorageIRI const& location) {
    checkSame(location, StorageIRI(location.toString()));
    require(StorageIRI(location.toString()).getPath() == location.getPath());
    checkSame(location, StorageIRI(location.toIRI()));

    ustring const& resolved = location.getResolvedPath();
    ustring const closed = resolved + u"/";
    require(closed.find(u"/./") == ustring::npos && closed.find(u"/../") == ustring::npos);
    require(resolved.empty() || resolved.front() == u'/');
    require(resolved.size() < 2 || closed.find(u"//") == ustring::npos);
    require(location.getName().find(u'/') == ustring::npos);
    require(location.getName().empty() == (resolved.size() < 2));

    StorageIRI const plain = location.withResolvedPath();
    checkSame(plain, StorageIRI(plain.toString()));
    require(plain.getDecodedPath() == resolved);

    require(!location.isAncestorOf(location));
    StorageIRI at = location;
    while (at.hasParent()) {
        StorageIRI const parent = at.getParent();
        checkSame(parent, StorageIRI(parent.toString()));
        require(parent.getResolvedPath().size() < at.getResolvedPath().size());
        require(parent.isAncestorOf(at) && parent.isAncestorOf(location));
        require(at.makePathRelativeTo(parent) == at.getName());
        at = parent;
    }
    checkSame(at.getParent(), StorageIRI(at.getParent().toString()));
    require(!at.getParent().hasPath());

    if (location.hasInnerIRI()) {
        StorageIRI const again(location.getScheme(), location.getInnerIRI(), location.getPath());
        checkSame(again, location);
        require(again.toString() == location.toString());
    }
}
