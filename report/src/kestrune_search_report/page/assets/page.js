// Shows the view that the address asks for: #era=2012&type=signal&with=2011|strategy
"use strict";
(() => {
  const main = document.getElementById("main");
  const form = document.querySelector("form");
  const status = document.getElementById("status");
  const links = document.querySelectorAll("nav a");
  const views = new Map([["|", { label: main.dataset.label, nodes: [...main.children] }]]);
  for (const template of document.querySelectorAll("template")) {
    views.set(template.id.slice("view:".length), { label: template.dataset.label, template });
  }

  const sections = (view) => {
    const source = view.template ? view.template.content.children : view.nodes;
    return [...source].map((section) => section.cloneNode(true));
  };
  const asked = () => new URLSearchParams(location.hash.slice(1));
  const percent = (share) => (100 * share).toFixed(1) + "%";

  // Newcombe's interval of a difference, from Wilson's of either share.
  const wilson = (passed, total) => {
    const z = 1.959964, share = passed / total, over = 1 + (z * z) / total;
    const middle = (share + (z * z) / (2 * total)) / over;
    const reach = (z / over) * Math.sqrt((share * (1 - share)) / total + (z * z) / (4 * total * total));
    return [share, middle - reach, middle + reach];
  };
  const counts = (nodes) => {
    const tiles = nodes[0].querySelector(".tiles").dataset;
    return [Number(tiles.passed), Number(tiles.total)];
  };
  const apart = (a, b) => {
    const [[eraA, typeA], [eraB, typeB]] = [a.split("|"), b.split("|")];
    return Boolean((eraA && eraB && eraA !== eraB) || (typeA && typeB && typeA !== typeB));
  };
  const compared = (a, b, first, second) => {
    const [one, two] = [counts(first), counts(second)];
    const [[p, pLow, pHigh], [q, qLow, qHigh]] = [wilson(...one), wilson(...two)];
    const points = (value) => (value < 0 ? "−" : "+") + Math.abs(100 * value).toFixed(1);
    const start = `${views.get(a).label}: ${percent(p)} of ${one[1]} passed. ` +
      `${views.get(b).label}: ${percent(q)} of ${two[1]}, ${points(q - p)} points`;
    if (!apart(a, b)) return `${start}; the two share evaluations, so no interval is given.`;
    const low = q - p - Math.hypot(q - qLow, pHigh - p);
    const high = q - p + Math.hypot(qHigh - q, p - pLow);
    const told = low > 0 || high < 0 ? "more than chance would show in one look" : "which chance explains";
    return `${start} (${points(low)} to ${points(high)}), ${told}.`;
  };

  const beside = (first, second, labels) => {
    first.forEach((section, place) => {
      const sides = document.createElement("div");
      sides.className = "sides";
      [section, second[place]].forEach((one, which) => {
        const side = one.querySelector(".side");
        const title = document.createElement("p");
        title.className = "which";
        title.textContent = labels[which];
        side.prepend(title);
        sides.append(side);
      });
      section.append(sides);
    });
    return first;
  };

  const show = () => {
    const wanted = asked();
    const key = `${wanted.get("era") || ""}|${wanted.get("type") || ""}`;
    const other = wanted.get("with");
    const known = views.has(key);
    if (form) {
      for (const select of form.querySelectorAll("select")) select.value = wanted.get(select.name) || "";
    }
    const view = views.get(known ? key : "|");
    let nodes = sections(view);
    let said = key === "|" ? "" : `Shown: ${view.label}. Chance is judged over the whole search only.`;
    if (!known) said = "This part has no view here; shown is the whole search.";
    if (known && other && other !== key && views.has(other)) {
      const second = sections(views.get(other));
      said = compared(key, other, nodes, second);
      nodes = beside(nodes, second, [view.label, views.get(other).label]);
    }
    const open = [...main.querySelectorAll("details")].map((one) => one.open);
    main.replaceChildren(...nodes);
    const now = [...main.querySelectorAll("details")];
    if (now.length === open.length) now.forEach((one, place) => (one.open = open[place]));
    status.textContent = said;
  };

  if (form) {
    form.hidden = false;
    form.addEventListener("submit", (event) => event.preventDefault());
    form.addEventListener("change", () => {
      const chosen = [...new FormData(form)].filter(([, value]) => value);
      location.hash = new URLSearchParams(chosen).toString();
    });
    form.querySelector("button")?.addEventListener("click", () => (location.hash = ""));
  }
  // The address holds what is shown, so the way to a section is not by address.
  for (const link of links) {
    link.addEventListener("click", (event) => {
      event.preventDefault();
      const section = document.getElementById(link.getAttribute("href").slice(1));
      section.tabIndex = -1;
      section.scrollIntoView();
      section.focus({ preventScroll: true });
    });
  }
  addEventListener("hashchange", show);
  if (asked().size || location.hash.includes("=")) show();
  performance.mark("ready");
})();
