-- dbdemos.db3, the demo database shipped with Brindle: the shop, staff and
-- customers of "Larkspur Outfitters", an imaginary outdoor-equipment retailer
-- with twelve stores and an online shop.
--
-- Built by the sqlite3 shell at compile time:
--     sqlite3 -bail dbdemos.db3 < dbdemos.sql
-- Generated values come from row numbers through a fixed integer hash, never
-- from random() or the clock, so every build yields the same file. The data's
-- "today" is 2024-12-31.

PRAGMA page_size = 4096;
PRAGMA foreign_keys = ON;

BEGIN;

PRAGMA user_version = 1;

-- ===========================================================================
-- Generator helpers. Temporary tables live outside the database file.
-- ===========================================================================

-- rnd holds six independent 32-bit hash values a..f for each n. Each table
-- hashes its own range of n: employees 0+, customers 1000+, products 2000+,
-- product tags 2300+, orders 3000+, order sizes 5000+, order lines 10000+.
CREATE TEMP TABLE rnd (n INTEGER PRIMARY KEY, a INTEGER, b INTEGER, c INTEGER,
                       d INTEGER, e INTEGER, f INTEGER);
WITH RECURSIVE
  m(m) AS (SELECT 0 UNION ALL SELECT m + 1 FROM m WHERE m < 6 * 20000 - 1),
  -- x = (x ^ x >> 16) * 0x45d9f3b, twice, then x ^ x >> 16; all products stay
  -- below 2^63. SQLite has no XOR operator: a ^ b = (a | b) - (a & b).
  h1(m, x) AS (SELECT m, (((m | (m >> 16)) - (m & (m >> 16))) * 73244475) & 4294967295 FROM m),
  h2(m, x) AS (SELECT m, (((x | (x >> 16)) - (x & (x >> 16))) * 73244475) & 4294967295 FROM h1),
  h3(m, x) AS (SELECT m, (x | (x >> 16)) - (x & (x >> 16)) FROM h2)
INSERT INTO rnd
SELECT m / 6,
       max(CASE m % 6 WHEN 0 THEN x END), max(CASE m % 6 WHEN 1 THEN x END),
       max(CASE m % 6 WHEN 2 THEN x END), max(CASE m % 6 WHEN 3 THEN x END),
       max(CASE m % 6 WHEN 4 THEN x END), max(CASE m % 6 WHEN 5 THEN x END)
FROM h3 GROUP BY m / 6;

-- 40 first and 40 last names; ascii is the spelling used in e-mail addresses.
CREATE TEMP TABLE first_names (i INTEGER PRIMARY KEY, name TEXT, ascii TEXT);
INSERT INTO first_names (name, ascii) VALUES
  ('Anna', 'anna'), ('José', 'jose'), ('François', 'francois'), ('Zoë', 'zoe'),
  ('Søren', 'soren'), ('Łukasz', 'lukasz'), ('Mário', 'mario'), ('Björn', 'bjorn'),
  ('Chloé', 'chloe'), ('Jürgen', 'juergen'), ('Inês', 'ines'), ('Dorota', 'dorota'),
  ('Ahmet', 'ahmet'), ('Yuki', 'yuki'), ('Priya', 'priya'), ('Émile', 'emile'),
  ('Sofía', 'sofia'), ('Matthias', 'matthias'), ('Ingrid', 'ingrid'), ('Tomáš', 'tomas'),
  ('Élodie', 'elodie'), ('Oliver', 'oliver'), ('Siobhán', 'siobhan'), ('Nikolaj', 'nikolaj'),
  ('Giulia', 'giulia'), ('Raúl', 'raul'), ('Astrid', 'astrid'), ('Henrik', 'henrik'),
  ('Maëlle', 'maelle'), ('Kateřina', 'katerina'), ('Lars', 'lars'), ('Agnieszka', 'agnieszka'),
  ('Daniel', 'daniel'), ('Eleni', 'eleni'), ('Pál', 'pal'), ('Marta', 'marta'),
  ('Jonas', 'jonas'), ('Aoife', 'aoife'), ('Hanna', 'hanna'), ('Gustavo', 'gustavo');

CREATE TEMP TABLE last_names (i INTEGER PRIMARY KEY, name TEXT, ascii TEXT);
INSERT INTO last_names (name, ascii) VALUES
  ('García', 'garcia'), ('Müller', 'mueller'), ('Dvořák', 'dvorak'), ('Øvergaard', 'overgaard'),
  ('Nowak', 'nowak'), ('Smith', 'smith'), ('O''Brien', 'obrien'), ('Johansson', 'johansson'),
  ('Rossi', 'rossi'), ('Silva', 'silva'), ('Kowalski', 'kowalski'), ('Nguyen', 'nguyen'),
  ('Tanaka', 'tanaka'), ('Fernández', 'fernandez'), ('Lefèvre', 'lefevre'), ('Schäfer', 'schaefer'),
  ('Jónsson', 'jonsson'), ('Novák', 'novak'), ('Bianchi', 'bianchi'), ('Petersen', 'petersen'),
  ('Moreau', 'moreau'), ('Wagner', 'wagner'), ('Lindqvist', 'lindqvist'), ('Costa', 'costa'),
  ('Horváth', 'horvath'), ('Papadopoulos', 'papadopoulos'), ('Virtanen', 'virtanen'), ('Murphy', 'murphy'),
  ('de Vries', 'devries'), ('Janssens', 'janssens'), ('Yılmaz', 'yilmaz'), ('Brennan', 'brennan'),
  ('Haugen', 'haugen'), ('Søndergaard', 'sondergaard'), ('Wójcik', 'wojcik'), ('Gruber', 'gruber'),
  ('Bergström', 'bergstrom'), ('Ferreira', 'ferreira'), ('Martínez', 'martinez'), ('Kaczmarek', 'kaczmarek');

-- Customer home towns. postal holds the leading characters of the town's
-- postal codes; the rest is generated in the country's format.
CREATE TEMP TABLE cities (i INTEGER PRIMARY KEY, city TEXT, country_code TEXT, postal TEXT);
INSERT INTO cities (city, country_code, postal) VALUES
  ('Wien', 'AT', '1'), ('Graz', 'AT', '80'), ('Innsbruck', 'AT', '60'), ('Salzburg', 'AT', '50'),
  ('Bruxelles', 'BE', '10'), ('Gent', 'BE', '90'), ('Liège', 'BE', '40'),
  ('Zürich', 'CH', '80'), ('Genève', 'CH', '12'), ('Bern', 'CH', '30'), ('Luzern', 'CH', '60'),
  ('Praha', 'CZ', '1'), ('Brno', 'CZ', '6'),
  ('Berlin', 'DE', '10'), ('München', 'DE', '80'), ('Köln', 'DE', '50'), ('Hamburg', 'DE', '20'),
  ('Freiburg im Breisgau', 'DE', '79'), ('Leipzig', 'DE', '04'),
  ('København', 'DK', '1'), ('Aarhus', 'DK', '80'),
  ('Madrid', 'ES', '28'), ('Barcelona', 'ES', '08'), ('Sevilla', 'ES', '41'), ('Málaga', 'ES', '29'),
  ('Helsinki', 'FI', '00'), ('Tampere', 'FI', '33'),
  ('Paris', 'FR', '75'), ('Lyon', 'FR', '69'), ('Grenoble', 'FR', '38'), ('Besançon', 'FR', '25'),
  ('Nîmes', 'FR', '30'), ('Chamonix-Mont-Blanc', 'FR', '744'),
  ('London', 'GB', 'SW'), ('Edinburgh', 'GB', 'EH'), ('Manchester', 'GB', 'M'), ('Keswick', 'GB', 'CA'),
  ('Dublin', 'IE', 'D08'), ('Cork', 'IE', 'T12'),
  ('Reykjavík', 'IS', '10'), ('Akureyri', 'IS', '60'),
  ('Milano', 'IT', '20'), ('Torino', 'IT', '10'), ('Bologna', 'IT', '40'), ('Bolzano', 'IT', '39'),
  ('Amsterdam', 'NL', '10'), ('Utrecht', 'NL', '35'),
  ('Oslo', 'NO', '0'), ('Tromsø', 'NO', '90'), ('Bergen', 'NO', '50'),
  ('Kraków', 'PL', '3'), ('Wrocław', 'PL', '5'), ('Gdańsk', 'PL', '80'), ('Zakopane', 'PL', '34'),
  ('Lisboa', 'PT', '1'), ('Porto', 'PT', '4'),
  ('Stockholm', 'SE', '1'), ('Göteborg', 'SE', '4'), ('Malmö', 'SE', '2'), ('Kiruna', 'SE', '98'),
  ('Montréal', 'CA', 'H'), ('Québec', 'CA', 'G'),
  ('Denver', 'US', '802'), ('Seattle', 'US', '981'), ('Boulder', 'US', '803'),
  ('Queenstown', 'NZ', '93'), ('Wellington', 'NZ', '60');

-- Three street names per country, k = 0..2.
CREATE TEMP TABLE streets (country_code TEXT, k INTEGER, name TEXT, PRIMARY KEY (country_code, k));
INSERT INTO streets VALUES
  ('AT', 0, 'Mariahilfer Straße'), ('AT', 1, 'Herrengasse'), ('AT', 2, 'Landstraßer Hauptstraße'),
  ('BE', 0, 'Rue Neuve'), ('BE', 1, 'Veldstraat'), ('BE', 2, 'Avenue Louise'),
  ('CH', 0, 'Bahnhofstrasse'), ('CH', 1, 'Rue du Rhône'), ('CH', 2, 'Marktgasse'),
  ('CZ', 0, 'Vinohradská'), ('CZ', 1, 'Národní'), ('CZ', 2, 'Masarykova'),
  ('DE', 0, 'Hauptstraße'), ('DE', 1, 'Schillerstraße'), ('DE', 2, 'Am Mühlbach'),
  ('DK', 0, 'Vesterbrogade'), ('DK', 1, 'Nørregade'), ('DK', 2, 'Åboulevard'),
  ('ES', 0, 'Calle Mayor'), ('ES', 1, 'Avenida de la Constitución'), ('ES', 2, 'Calle de Alcalá'),
  ('FI', 0, 'Mannerheimintie'), ('FI', 1, 'Hämeenkatu'), ('FI', 2, 'Aleksanterinkatu'),
  ('FR', 0, 'rue de la République'), ('FR', 1, 'avenue Jean-Jaurès'), ('FR', 2, 'place des Célestins'),
  ('GB', 0, 'High Street'), ('GB', 1, 'Station Road'), ('GB', 2, 'Church Lane'),
  ('IE', 0, 'Main Street'), ('IE', 1, 'Patrick Street'), ('IE', 2, 'Grafton Street'),
  ('IS', 0, 'Laugavegur'), ('IS', 1, 'Skólavörðustígur'), ('IS', 2, 'Hafnarstræti'),
  ('IT', 0, 'Via Roma'), ('IT', 1, 'Corso Garibaldi'), ('IT', 2, 'Via dei Mille'),
  ('NL', 0, 'Kerkstraat'), ('NL', 1, 'Prinsengracht'), ('NL', 2, 'Oudegracht'),
  ('NO', 0, 'Storgata'), ('NO', 1, 'Kirkegata'), ('NO', 2, 'Torggata'),
  ('PL', 0, 'ul. Długa'), ('PL', 1, 'ul. Floriańska'), ('PL', 2, 'ul. Słoneczna'),
  ('PT', 0, 'Rua Augusta'), ('PT', 1, 'Avenida da Liberdade'), ('PT', 2, 'Rua de Santa Catarina'),
  ('SE', 0, 'Storgatan'), ('SE', 1, 'Drottninggatan'), ('SE', 2, 'Kungsgatan'),
  ('CA', 0, 'rue Sainte-Catherine'), ('CA', 1, 'boulevard Saint-Laurent'), ('CA', 2, 'avenue du Parc'),
  ('US', 0, 'Main Street'), ('US', 1, 'Pearl Street'), ('US', 2, 'Oak Avenue'),
  ('NZ', 0, 'Queen Street'), ('NZ', 1, 'Shotover Street'), ('NZ', 2, 'Beach Road');

-- Product kinds, one per sub-category; variants and suppliers are JSON
-- arrays. Each variant further down its list costs step * base_price more.
CREATE TEMP TABLE kinds (k INTEGER PRIMARY KEY, category_id INTEGER, noun TEXT,
                         base_price REAL, base_weight REAL, material TEXT,
                         variants TEXT, suppliers TEXT, step REAL);
INSERT INTO kinds VALUES
  (1, 8, 'Tent', 329, 2.1, 'Made of recycled ripstop nylon with fully taped seams.', '["1P","2P","3P","4P"]', '[5,3]', 0.15),
  (2, 9, 'Sleeping Bag', 219, 1.2, 'Filled with responsibly sourced duck down.', '["+5 °C","-5 °C","-15 °C"]', '[13,2]', 0.1),
  (3, 10, 'Sleeping Mat', 89, 0.6, 'Self-inflating open-cell foam in a tough polyester shell.', '["Regular","Long","Wide"]', '[5,8]', 0.08),
  (4, 11, 'Stove', 69, 0.3, 'Precision-machined aluminium burner with piezo ignition.', '["Mini","Duo","Pro"]', '[12,8]', 0.2),
  (5, 12, 'Pot Set', 49, 0.45, 'Hard-anodised aluminium that nests around a gas canister.', '["1.2 L","2 L","Trio"]', '[8,12]', 0.15),
  (6, 13, 'Rope', 179, 3.9, 'Dry-treated kernmantle rope, UIAA certified.', '["9.2 mm × 60 m","9.8 mm × 70 m","10.2 mm × 50 m"]', '[14,4]', 0.1),
  (7, 14, 'Harness', 79, 0.38, 'Padded waist belt, four gear loops and adjustable leg loops.', '["S","M","L","XL"]', '[14,4]', 0.0),
  (8, 15, 'Compass', 39, 0.08, 'Liquid-damped capsule with declination adjustment.', '["Baseplate","Mirror","Sighting"]', '[11,9]', 0.15),
  (9, 16, 'Headlamp', 45, 0.09, 'Rechargeable lithium cell and a red night-vision mode.', '["200 lm","400 lm","900 lm"]', '[9,11]', 0.3),
  (10, 17, 'Bottle', 19, 0.18, 'BPA-free, dishwasher safe and leakproof.', '["0.5 L","0.75 L","1 L"]', '[15,8]', 0.1),
  (11, 18, 'Water Filter', 59, 0.12, 'Hollow-fibre membrane that removes 99.9999 % of bacteria.', '["Squeeze","Gravity 4 L","Straw"]', '[15,9]', 0.2),
  (12, 19, 'Jacket', 249, 0.42, 'Three-layer waterproof, breathable membrane with pit zips.', '["Men''s","Women''s"]', '[2,6]', 0.0),
  (13, 20, 'Base Layer', 69, 0.2, 'Soft merino wool that stays warm when wet and resists odour.', '["150 g/m²","200 g/m²","260 g/m²"]', '[10,1]', 0.1),
  (14, 21, 'Hiking Boot', 189, 1.3, 'Full-grain leather upper on a deep-lugged rubber sole.', '["Low","Mid","High"]', '[7,1]', 0.05),
  (15, 22, 'Trail Shoe', 139, 0.6, 'Breathable mesh upper, rock plate and a 6 mm drop.', '["Road-to-Trail","Mud","Ultra"]', '[7,6]', 0.0);

CREATE TEMP TABLE series (i INTEGER PRIMARY KEY, name TEXT);
INSERT INTO series (name) VALUES
  ('Aurora'), ('Borealis'), ('Cirrus'), ('Dunlin'), ('Ember'), ('Fjord'), ('Glacier'), ('Halcyon'),
  ('Isbre'), ('Juniper'), ('Kestrel'), ('Lichen'), ('Moraine'), ('Nimbus'), ('Ortler'), ('Pinnacle'),
  ('Quartz'), ('Ridgeline'), ('Sólheim'), ('Tundra'), ('Ursa'), ('Vindur'), ('Wayfarer'), ('Zenith');

-- Sentence fragments for product descriptions: kind 1 opens, kind 2 closes.
CREATE TEMP TABLE phrases (kind INTEGER, k INTEGER, text TEXT, PRIMARY KEY (kind, k));
INSERT INTO phrases VALUES
  (1, 0, 'Lightweight and packable.'), (1, 1, 'Built to last season after season.'),
  (1, 2, 'Our best-selling design, refined for this year.'), (1, 3, 'Compact enough for any rucksack.'),
  (1, 4, 'Rugged construction for rough terrain.'), (1, 5, 'Developed with mountain guides in the Écrins.'),
  (1, 6, 'Quiet, simple and reliable.'), (1, 7, 'A favourite of our staff in Tromsø.'),
  (2, 0, 'Ideal for weekend trips.'), (2, 1, 'Tried and tested on the Kungsleden.'),
  (2, 2, 'Great for hut-to-hut tours across the Alps.'), (2, 3, 'Equally at home at the crag and on the campsite.'),
  (2, 4, 'A solid choice for scout groups and school trips.'), (2, 5, 'Made for long days on the fjäll.'),
  (2, 6, 'Proven in the wind and rain of the Highlands.'), (2, 7, 'Backpackers on the GR 20 love it.');

-- ===========================================================================
-- Schema
-- ===========================================================================

-- ISO 3166 country codes; a natural key, so the table needs no rowid.
CREATE TABLE countries (
  code         TEXT PRIMARY KEY CHECK (length(code) = 2 AND code = upper(code)),
  name         TEXT NOT NULL UNIQUE,
  native_name  TEXT,                -- NULL where it equals the English name
  continent    TEXT NOT NULL,
  currency     TEXT NOT NULL,       -- ISO 4217
  calling_code TEXT NOT NULL
) WITHOUT ROWID;

-- Files kept in the database: category icons, attachments, exports.
CREATE TABLE media (
  media_id  INTEGER PRIMARY KEY,
  file_name TEXT NOT NULL UNIQUE,
  mime_type TEXT NOT NULL,
  data      BLOB,                   -- NULL while a file is still missing
  added_on  TEXT NOT NULL,
  caption   TEXT
);

-- Two levels: top-level categories have no parent.
CREATE TABLE categories (
  category_id INTEGER PRIMARY KEY,
  parent_id   INTEGER REFERENCES categories (category_id) ON DELETE SET NULL ON UPDATE CASCADE,
  name        TEXT NOT NULL UNIQUE COLLATE NOCASE,
  description TEXT,
  icon_id     INTEGER REFERENCES media (media_id) ON DELETE SET NULL,
  sort_order  INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE suppliers (
  supplier_id  INTEGER PRIMARY KEY,
  name         TEXT NOT NULL,
  contact_name TEXT,
  email        TEXT,
  phone        TEXT,
  website      TEXT,
  country_code TEXT NOT NULL REFERENCES countries (code) ON UPDATE CASCADE
);

CREATE TABLE stores (
  store_id     INTEGER PRIMARY KEY,
  name         TEXT NOT NULL UNIQUE,
  street       TEXT NOT NULL,
  city         TEXT NOT NULL,
  postal_code  TEXT,
  country_code TEXT NOT NULL REFERENCES countries (code) ON UPDATE CASCADE,
  region       TEXT NOT NULL CHECK (region IN ('Central', 'East', 'North')),
  opened_on    TEXT NOT NULL,
  latitude     REAL NOT NULL,
  longitude    REAL NOT NULL,
  phone        TEXT,
  manager_id   INTEGER REFERENCES employees (employee_id) ON DELETE SET NULL
);

CREATE TABLE employees (
  employee_id INTEGER PRIMARY KEY,
  first_name  TEXT NOT NULL,
  last_name   TEXT NOT NULL,
  title       TEXT NOT NULL,
  manager_id  INTEGER REFERENCES employees (employee_id) ON DELETE SET NULL ON UPDATE CASCADE,
  store_id    INTEGER REFERENCES stores (store_id) ON DELETE SET NULL,  -- NULL: head office
  email       TEXT NOT NULL,
  extension   INTEGER,
  birth_date  TEXT,
  hire_date   TEXT NOT NULL,
  salary      REAL CHECK (salary > 0),
  updated_at  TEXT
);

CREATE TABLE customers (
  customer_id    INTEGER PRIMARY KEY,
  first_name     TEXT NOT NULL,
  last_name      TEXT NOT NULL,
  company        TEXT,
  email          TEXT,
  phone          TEXT,
  street         TEXT,
  city           TEXT NOT NULL,
  postal_code    TEXT,
  country_code   TEXT NOT NULL REFERENCES countries (code) ON UPDATE CASCADE,
  birth_date     TEXT,
  created_at     TEXT NOT NULL,
  support_rep_id INTEGER REFERENCES employees (employee_id) ON DELETE SET NULL,
  loyalty_points INTEGER NOT NULL DEFAULT 0,
  is_active      INTEGER NOT NULL DEFAULT 1 CHECK (is_active IN (0, 1)),
  notes          TEXT,
  updated_at     TEXT
);

CREATE TABLE products (
  product_id     INTEGER PRIMARY KEY,
  sku            TEXT NOT NULL,
  name           TEXT NOT NULL,
  category_id    INTEGER NOT NULL REFERENCES categories (category_id) ON DELETE RESTRICT ON UPDATE CASCADE,
  supplier_id    INTEGER REFERENCES suppliers (supplier_id) ON DELETE SET NULL ON UPDATE CASCADE,
  unit_price     REAL NOT NULL CHECK (unit_price >= 0),
  units_in_stock INTEGER NOT NULL DEFAULT 0,
  reorder_level  INTEGER NOT NULL DEFAULT 5,
  weight_kg      REAL,
  discontinued   INTEGER NOT NULL DEFAULT 0 CHECK (discontinued IN (0, 1)),
  description    TEXT,
  updated_at     TEXT
);

CREATE TABLE tags (
  tag_id INTEGER PRIMARY KEY,
  name   TEXT NOT NULL UNIQUE COLLATE NOCASE,
  colour TEXT CHECK (colour GLOB '#[0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F]')
);

-- Link table: the composite key is all there is, so no rowid.
CREATE TABLE product_tags (
  product_id INTEGER NOT NULL REFERENCES products (product_id) ON DELETE CASCADE ON UPDATE CASCADE,
  tag_id     INTEGER NOT NULL REFERENCES tags (tag_id) ON DELETE CASCADE,
  PRIMARY KEY (product_id, tag_id)
) WITHOUT ROWID;

-- Order numbers are printed on invoices and must never be reused.
CREATE TABLE orders (
  order_id       INTEGER PRIMARY KEY AUTOINCREMENT,
  customer_id    INTEGER NOT NULL REFERENCES customers (customer_id) ON DELETE RESTRICT ON UPDATE CASCADE,
  employee_id    INTEGER REFERENCES employees (employee_id) ON DELETE SET NULL,
  store_id       INTEGER REFERENCES stores (store_id) ON DELETE SET NULL,  -- NULL: online shop
  order_date     TEXT NOT NULL,
  required_date  TEXT,
  shipped_date   TEXT,
  status         TEXT NOT NULL DEFAULT 'new'
                 CHECK (status IN ('new', 'paid', 'shipped', 'delivered', 'cancelled', 'returned')),
  payment_method TEXT CHECK (payment_method IN ('card', 'cash', 'invoice', 'bank transfer', 'voucher')),
  ship_city      TEXT,
  ship_country   TEXT REFERENCES countries (code) ON UPDATE CASCADE,
  freight        REAL NOT NULL DEFAULT 0,
  comment        TEXT
);

CREATE TABLE order_items (
  order_id   INTEGER NOT NULL REFERENCES orders (order_id) ON DELETE CASCADE ON UPDATE CASCADE,
  line_no    INTEGER NOT NULL,
  product_id INTEGER NOT NULL REFERENCES products (product_id) ON DELETE RESTRICT ON UPDATE CASCADE,
  quantity   INTEGER NOT NULL CHECK (quantity > 0),
  unit_price REAL NOT NULL,
  discount   REAL NOT NULL DEFAULT 0 CHECK (discount >= 0 AND discount < 1),
  PRIMARY KEY (order_id, line_no)
);

-- Filled by triggers; AUTOINCREMENT keeps log ids growing even after the
-- newest entries are purged.
CREATE TABLE audit_log (
  log_id     INTEGER PRIMARY KEY AUTOINCREMENT,
  logged_at  TEXT NOT NULL DEFAULT (datetime('now')),
  table_name TEXT NOT NULL,
  row_key    INTEGER NOT NULL,
  action     TEXT NOT NULL CHECK (action IN ('INSERT', 'UPDATE', 'DELETE')),
  changes    TEXT CHECK (changes IS NULL OR json_valid(changes))
);

-- Full-text index of the catalogue; docid is the product_id.
CREATE VIRTUAL TABLE product_search USING fts4 (name, description, tokenize=unicode61);

-- Store buildings, car parks, delivery zones and sales regions as
-- longitude/latitude boxes.
CREATE VIRTUAL TABLE store_areas USING rtree (
  area_id, min_lon, max_lon, min_lat, max_lat,
  +store_id, +kind, +label
);

-- ===========================================================================
-- Data
-- ===========================================================================

INSERT INTO countries VALUES
  ('AR', 'Argentina', NULL, 'South America', 'ARS', '+54'),
  ('AT', 'Austria', 'Österreich', 'Europe', 'EUR', '+43'),
  ('AU', 'Australia', NULL, 'Oceania', 'AUD', '+61'),
  ('BE', 'Belgium', 'België / Belgique', 'Europe', 'EUR', '+32'),
  ('BR', 'Brazil', 'Brasil', 'South America', 'BRL', '+55'),
  ('CA', 'Canada', NULL, 'North America', 'CAD', '+1'),
  ('CH', 'Switzerland', 'Schweiz / Suisse / Svizzera', 'Europe', 'CHF', '+41'),
  ('CL', 'Chile', NULL, 'South America', 'CLP', '+56'),
  ('CZ', 'Czechia', 'Česko', 'Europe', 'CZK', '+420'),
  ('DE', 'Germany', 'Deutschland', 'Europe', 'EUR', '+49'),
  ('DK', 'Denmark', 'Danmark', 'Europe', 'DKK', '+45'),
  ('ES', 'Spain', 'España', 'Europe', 'EUR', '+34'),
  ('FI', 'Finland', 'Suomi', 'Europe', 'EUR', '+358'),
  ('FR', 'France', NULL, 'Europe', 'EUR', '+33'),
  ('GB', 'United Kingdom', NULL, 'Europe', 'GBP', '+44'),
  ('GR', 'Greece', 'Ελλάδα', 'Europe', 'EUR', '+30'),
  ('HU', 'Hungary', 'Magyarország', 'Europe', 'HUF', '+36'),
  ('IE', 'Ireland', 'Éire', 'Europe', 'EUR', '+353'),
  ('IS', 'Iceland', 'Ísland', 'Europe', 'ISK', '+354'),
  ('IT', 'Italy', 'Italia', 'Europe', 'EUR', '+39'),
  ('JP', 'Japan', '日本', 'Asia', 'JPY', '+81'),
  ('NL', 'Netherlands', 'Nederland', 'Europe', 'EUR', '+31'),
  ('NO', 'Norway', 'Norge', 'Europe', 'NOK', '+47'),
  ('NZ', 'New Zealand', 'Aotearoa', 'Oceania', 'NZD', '+64'),
  ('PL', 'Poland', 'Polska', 'Europe', 'PLN', '+48'),
  ('PT', 'Portugal', NULL, 'Europe', 'EUR', '+351'),
  ('SE', 'Sweden', 'Sverige', 'Europe', 'SEK', '+46'),
  ('SK', 'Slovakia', 'Slovensko', 'Europe', 'EUR', '+421'),
  ('TR', 'Türkiye', NULL, 'Asia', 'TRY', '+90'),
  ('US', 'United States', NULL, 'North America', 'USD', '+1');

-- The category icons are 32x32 RGBA PNG files.
INSERT INTO media (media_id, file_name, mime_type, data, added_on, caption) VALUES
  (1, 'icon_tent.png', 'image/png',
   X'89504E470D0A1A0A0000000D4948445200000020000000200806000000737A7AF40000007B4944415478DAEDD4310E80300C03C03E271303FFE3ED201891DA2486C48B2D65F6A94A3386A2281FB21DFB790FB59C86A002DEE5ED082A6056DE82F0CACB115440B4BC04312B31B367CA115480575E8EA002564B1605C0086FCB330008410544FE791690425001D14B87005C44E6D4A28025022DFFF51514A53B1731D11BC95CC024020000000049454E44AE426082',
   '2021-02-01', 'Category icon: camping'),
  (2, 'icon_flame.png', 'image/png',
   X'89504E470D0A1A0A0000000D4948445200000020000000200806000000737A7AF4000000744944415478DA63601805A3602883D75122FF4178643A0066F9803962643B00DD72BA3B62401D80CB72BA3962401D40C8729A3A8258CB69E208522DA7BA2306D401E45A4E35476033F4FF090DAC982E0EC065392E478C3A60E83B00DD11A4388026E5C080388058470C9AFA60F8B78846013501001A4E63D7C0EFEFED0000000049454E44AE426082',
   '2021-02-01', 'Category icon: cooking'),
  (3, 'icon_mountain.png', 'image/png',
   X'89504E470D0A1A0A0000000D4948445200000020000000200806000000737A7AF4000000824944415478DAEDD6B10E80200C04503ED1C5D93F60F6DBBB601C7420822D5C5B137BC9CDF7521D48291289084244E5ACEBB81BC215508F9B225AE326889CF7C2E9E70090EB70C76B04E41349C7AFC2FE9351C0B26E8F3519872066C7A711DA802E02353E7405F4B808A135CE4678016E8436E0F50A16802EE2378016225EDA11F71CFCC9E7938A9214770000000049454E44AE426082',
   '2021-02-01', 'Category icon: climbing'),
  (4, 'icon_compass.png', 'image/png',
   X'89504E470D0A1A0A0000000D4948445200000020000000200806000000737A7AF4000000B94944415478DAED97CB09C02010446D2397D49412534E8AB0178307212CFEC69D8D12B2B0A7C0BC17445D9DFB0BACED3843ADA781CD449070BA8826482DC1F88BE10CE65AC2594CF8B5EF01CE64C3A15C063C8225BC3B5F2390C0C302A36B2FC125789381C273E0964095830878EF436C144E17C849980B3CE152023967A80249C25CA0048F8D1ECD43DB5003EE62D43E6AC09493500356DF075A30B4CDE53A31E1536682A953D1D4B9D064327E7D2C5FE261B2CCD3ECB37503E584166B0F32A3A70000000049454E44AE426082',
   '2021-02-01', 'Category icon: navigation'),
  (5, 'icon_drop.png', 'image/png',
   X'89504E470D0A1A0A0000000D4948445200000020000000200806000000737A7AF4000000704944415478DA63601805A3800220D7F1F43F088F4C07C02C1F30470CA803D02DA7AB2370594E37470CA80308594E73470CA80388B59C268E20D572AA3A825CCBA9E688017500BA615B1EFE47C13477C4A803069D03E89E1007DC01A3E5C0A0288A0745653468DA0383A24D380AA80D001515FB2BA6574EEC0000000049454E44AE426082',
   '2021-02-01', 'Category icon: hydration');

INSERT INTO categories (category_id, parent_id, name, description, icon_id, sort_order) VALUES
  (1, NULL, 'Camping & Shelter', 'Tents, sleeping bags and mats for nights outdoors.', 1, 1),
  (2, NULL, 'Cooking', 'Stoves and cookware for the trail.', 2, 2),
  (3, NULL, 'Climbing & Mountaineering', 'Ropes, harnesses and hardware.', 3, 3),
  (4, NULL, 'Navigation & Lighting', 'Finding the way, day and night.', 4, 4),
  (5, NULL, 'Hydration', 'Carrying and cleaning water.', 5, 5),
  (6, NULL, 'Clothing', 'Layers for every kind of weather.', NULL, 6),
  (7, NULL, 'Footwear', NULL, NULL, 7),
  (8, 1, 'Tents', NULL, NULL, 1),
  (9, 1, 'Sleeping Bags', 'Rated by comfort temperature.', NULL, 2),
  (10, 1, 'Sleeping Mats', NULL, NULL, 3),
  (11, 2, 'Stoves', 'Gas and multi-fuel stoves.', NULL, 1),
  (12, 2, 'Cookware', NULL, NULL, 2),
  (13, 3, 'Ropes', 'Single ropes, sold by diameter and length.', NULL, 1),
  (14, 3, 'Harnesses', NULL, NULL, 2),
  (15, 4, 'Compasses', NULL, NULL, 1),
  (16, 4, 'Headlamps', 'Brightness given in lumens.', NULL, 2),
  (17, 5, 'Bottles', NULL, NULL, 1),
  (18, 5, 'Water Filters', NULL, NULL, 2),
  (19, 6, 'Jackets', 'Waterproof shells and insulated jackets.', NULL, 1),
  (20, 6, 'Base Layers', NULL, NULL, 2),
  (21, 7, 'Hiking Boots', NULL, NULL, 1),
  (22, 7, 'Trail Shoes', NULL, NULL, 2),
  (23, NULL, 'Gift Cards', 'Sold at the till only; not in the catalogue yet.', NULL, 8);

INSERT INTO suppliers (supplier_id, name, contact_name, email, phone, website, country_code) VALUES
  (1, 'Alpenfaser GmbH', 'Kathrin Moser', 'vertrieb@alpenfaser.example', '+43 512 555 0140', 'https://alpenfaser.example', 'AT'),
  (2, 'Nordkap Tekstil AS', 'Eirik Solberg', 'salg@nordkap-tekstil.example', '+47 77 55 50 12', NULL, 'NO'),
  (3, 'Atelier Grésivaudan SARL', 'Léa Girard', 'contact@gresivaudan.example', '+33 4 76 55 50 31', 'https://gresivaudan.example', 'FR'),
  (4, 'Krkonoše Outdoor s.r.o.', 'Jiří Horák', 'obchod@krkonose-outdoor.example', '+420 499 555 014', NULL, 'CZ'),
  (5, 'Myrspår AB', 'Elin Sjöberg', 'order@myrspar.example', '+46 31 555 01 20', 'https://myrspar.example', 'SE'),
  (6, 'Highland Loom Ltd', 'Callum MacLeod', 'trade@highlandloom.example', '+44 1463 555 017', 'https://highlandloom.example', 'GB'),
  (7, 'Serra da Estrela Calçado Lda', 'Rui Tavares', 'geral@estrela-calcado.example', '+351 275 555 018', NULL, 'PT'),
  (8, 'Cumbre Metalurgia S.L.', 'Nuria Vidal', 'ventas@cumbre-metal.example', '+34 974 555 019', NULL, 'ES'),
  (9, 'Lumi Valaisin Oy', 'Aino Mäkelä', 'myynti@lumivalaisin.example', '+358 16 555 0120', 'https://lumivalaisin.example', 'FI'),
  (10, 'Southern Alps Merino Ltd', 'Hemi Walker', 'hello@southernalpsmerino.example', '+64 3 555 0121', 'https://southernalpsmerino.example', 'NZ'),
  (11, 'Kōgen Seiki K.K.', 'Haruto Sato', 'export@kogen-seiki.example', '+81 263 55 5012', NULL, 'JP'),
  (12, 'Hekla Eldavélar ehf.', 'Guðrún Einarsdóttir', 'sala@hekla-eldavelar.example', '+354 555 0123', NULL, 'IS'),
  (13, 'Polar Puch Sp. z o.o.', 'Krzysztof Zieliński', 'biuro@polarpuch.example', '+48 18 555 01 24', 'https://polarpuch.example', 'PL'),
  (14, 'Dolomiti Corde S.r.l.', 'Chiara Pichler', 'info@dolomiticorde.example', '+39 0471 555 125', 'https://dolomiticorde.example', 'IT'),
  (15, 'Front Range Hydration Inc.', NULL, 'orders@frontrangehydration.example', '+1 303 555 0126', 'https://frontrangehydration.example', 'US');

-- Stores get their managers once the staff exists.
INSERT INTO stores (store_id, name, street, city, postal_code, country_code, region, opened_on, latitude, longitude, phone) VALUES
  (1, 'Larkspur Berlin', 'Torstraße 112', 'Berlin', '10119', 'DE', 'Central', '2014-03-15', 52.5291, 13.4010, '+49 30 555 0101'),
  (2, 'Larkspur München', 'Rosenheimer Straße 43', 'München', '81669', 'DE', 'Central', '2015-09-01', 48.1290, 11.5926, '+49 89 555 0102'),
  (3, 'Larkspur Wien', 'Mariahilfer Straße 88', 'Wien', '1070', 'AT', 'Central', '2016-04-02', 48.1986, 16.3468, '+43 1 555 0103'),
  (4, 'Larkspur Zürich', 'Langstrasse 21', 'Zürich', '8004', 'CH', 'Central', '2017-05-20', 47.3783, 8.5275, '+41 44 555 01 04'),
  (5, 'Larkspur Grenoble', '14 cours Jean-Jaurès', 'Grenoble', '38000', 'FR', 'Central', '2018-10-06', 45.1847, 5.7186, '+33 4 76 55 50 05'),
  (6, 'Larkspur Kraków', 'ul. Karmelicka 30', 'Kraków', '31-128', 'PL', 'East', '2016-11-12', 50.0683, 19.9306, '+48 12 555 01 06'),
  (7, 'Larkspur Praha', 'Vinohradská 61', 'Praha', '130 00', 'CZ', 'East', '2019-03-09', 50.0770, 14.4490, '+420 222 555 107'),
  (8, 'Larkspur Oslo', 'Storgata 27', 'Oslo', '0184', 'NO', 'North', '2014-08-23', 59.9150, 10.7561, '+47 22 55 51 08'),
  (9, 'Larkspur Tromsø', 'Storgata 88', 'Tromsø', '9008', 'NO', 'North', '2020-06-13', 69.6483, 18.9553, '+47 77 55 51 09'),
  (10, 'Larkspur Göteborg', 'Kungsgatan 36', 'Göteborg', '411 19', 'SE', 'North', '2017-02-18', 57.7045, 11.9636, '+46 31 555 01 10'),
  (11, 'Larkspur Edinburgh', '74 Rose Street', 'Edinburgh', 'EH2 3DX', 'GB', 'North', '2019-09-28', 55.9530, -3.2003, '+44 131 555 0111'),
  (12, 'Larkspur Reykjavík', 'Laugavegur 53', 'Reykjavík', '101', 'IS', 'North', '2021-05-01', 64.1447, -21.9265, '+354 555 0112');

-- Staff: 1 managing director; 2-4 regional managers (Central, East, North);
-- 5-16 manage stores 1-12; 17-40 are sales associates, two per store;
-- 41-44 work at the head office.
WITH RECURSIVE
  seq(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM seq WHERE n < 44),
  staff AS (
    SELECT n,
           CASE WHEN n BETWEEN 5 AND 16 THEN n - 4 WHEN n BETWEEN 17 AND 40 THEN (n - 17) % 12 + 1 END AS store_id,
           (n * 367 + 911) % 1600 AS p   -- distinct for each n: unique names
    FROM seq
  )
INSERT INTO employees (employee_id, first_name, last_name, title, manager_id, store_id, email,
                       extension, birth_date, hire_date, salary)
SELECT s.n, f.name, l.name,
       CASE
         WHEN s.n = 1 THEN 'Managing Director'
         WHEN s.n <= 4 THEN 'Regional Manager ' || CASE s.n WHEN 2 THEN 'Central' WHEN 3 THEN 'East' ELSE 'North' END
         WHEN s.n <= 16 THEN 'Store Manager'
         WHEN s.n <= 40 THEN CASE WHEN r.a % 3 = 0 THEN 'Senior Sales Associate' ELSE 'Sales Associate' END
         WHEN s.n = 41 THEN 'Buyer'
         WHEN s.n = 42 THEN 'Accountant'
         ELSE 'Customer Service Agent'
       END,
       CASE
         WHEN s.n = 1 THEN NULL
         WHEN s.n <= 4 OR s.n > 40 THEN 1
         WHEN s.n <= 16 THEN CASE st.region WHEN 'Central' THEN 2 WHEN 'East' THEN 3 ELSE 4 END
         ELSE s.store_id + 4
       END,
       s.store_id,
       f.ascii || '.' || l.ascii || '@larkspur.example',
       CASE WHEN s.n <= 16 OR s.n > 40 THEN 100 + s.n END,
       CASE WHEN r.b % 10 = 0 THEN NULL ELSE date('1962-01-01', '+' || (r.b % 10950) || ' days') END,
       CASE
         WHEN s.n = 1 THEN '2012-04-01'
         WHEN s.n <= 4 THEN date('2012-09-01', '+' || (r.c % 500) || ' days')
         WHEN s.n <= 16 THEN date(st.opened_on, '-' || (30 + r.c % 150) || ' days')
         WHEN s.n <= 40 THEN date(st.opened_on, '+' || (r.c % 200) || ' days')
         ELSE date('2013-01-01', '+' || (r.c % 2500) || ' days')
       END,
       CASE
         WHEN s.n = 1 THEN 98000.0
         WHEN s.n <= 4 THEN 72000.0 + (r.d % 80) * 100
         WHEN s.n <= 16 THEN 54000.0 + (r.d % 60) * 100
         WHEN s.n <= 40 THEN 36000.0 + (r.d % 90) * 100
         ELSE 45000.0 + (r.d % 100) * 100
       END
FROM staff s
JOIN rnd r ON r.n = s.n
JOIN first_names f ON f.i = s.p % 40 + 1
JOIN last_names l ON l.i = s.p / 40 + 1
LEFT JOIN stores st ON st.store_id = s.store_id
ORDER BY s.n;

UPDATE stores SET manager_id = store_id + 4;

-- Customers sign up in id order from March 2019 on, one every three or four
-- days; names and e-mail addresses are unique.
WITH RECURSIVE
  seq(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM seq WHERE n < 600),
  base AS (
    SELECT seq.n, (seq.n * 577 + 123) % 1600 AS p, r.a, r.b, r.c, r.d, r.e, r.f,
           (SELECT count(*) FROM cities) AS city_count
    FROM seq JOIN rnd r ON r.n = 1000 + seq.n
  ),
  placed AS (
    SELECT b.*, c.city, c.country_code, c.postal, co.calling_code,
           -- digits filled in after the town's prefix
           substr(printf('%09d', b.e % 1000000000), 1,
                  CASE c.country_code
                    WHEN 'IS' THEN 3 WHEN 'PT' THEN 7
                    WHEN 'AT' THEN 4 WHEN 'BE' THEN 4 WHEN 'CH' THEN 4 WHEN 'DK' THEN 4
                    WHEN 'NL' THEN 4 WHEN 'NO' THEN 4 WHEN 'NZ' THEN 4
                    ELSE 5 END - length(c.postal)) AS digits
    FROM base b
    JOIN cities c ON c.i = b.a % b.city_count + 1
    JOIN countries co ON co.code = c.country_code
  )
INSERT INTO customers (customer_id, first_name, last_name, company, email, phone, street, city,
                       postal_code, country_code, birth_date, created_at, support_rep_id,
                       is_active, notes)
SELECT p.n, f.name, l.name,
       CASE p.c % 97
         WHEN 0 THEN 'Alpenverein Sektion Gipfelglück'
         WHEN 1 THEN 'Nordlys Expeditions AS'
         WHEN 2 THEN 'Trailhead Guides Ltd'
         WHEN 3 THEN 'Escuela de Montaña Picos'
         WHEN 4 THEN 'Klub Wysokogórski Kraków'
         WHEN 5 THEN 'École de ski du Vercors'
       END,
       CASE WHEN p.d % 20 = 0 THEN NULL
            ELSE f.ascii || '.' || l.ascii || '@' ||
                 CASE p.d % 5 WHEN 0 THEN 'mailbox.example' WHEN 1 THEN 'post.example'
                              WHEN 2 THEN 'webmail.example' WHEN 3 THEN 'inbox.example'
                              ELSE 'net.example' END
       END,
       CASE WHEN p.f % 8 = 0 THEN NULL
            ELSE p.calling_code || ' ' || (100 + p.f % 900) || ' ' || printf('%04d', p.f / 1000 % 10000) END,
       CASE WHEN p.country_code IN ('FR', 'GB', 'IE', 'CA', 'US', 'NZ')
            THEN (1 + p.b % 180) || ' ' || st.name
            ELSE st.name || ' ' || (1 + p.b % 180) END,
       p.city,
       CASE
         WHEN p.b % 19 = 0 THEN NULL
         WHEN p.country_code = 'GB' THEN p.postal || (1 + p.e % 9) || ' ' || (1 + p.e / 9 % 9)
                                         || char(65 + p.e / 81 % 26, 65 + p.e / 2106 % 26)
         WHEN p.country_code = 'IE' THEN p.postal || ' ' || char(65 + p.e % 26) || printf('%03d', p.e / 26 % 1000)
         WHEN p.country_code = 'CA' THEN p.postal || (1 + p.e % 9) || char(65 + p.e / 9 % 26) || ' '
                                         || (p.e / 234 % 10) || char(65 + p.e / 2340 % 26) || (p.e / 60840 % 10)
         WHEN p.country_code = 'NL' THEN p.postal || p.digits || ' ' || char(65 + p.e / 7 % 26, 65 + p.e / 182 % 26)
         WHEN p.country_code IN ('CZ', 'SE') THEN substr(p.postal || p.digits, 1, 3) || ' ' || substr(p.postal || p.digits, 4)
         WHEN p.country_code = 'PL' THEN substr(p.postal || p.digits, 1, 2) || '-' || substr(p.postal || p.digits, 3)
         WHEN p.country_code = 'PT' THEN substr(p.postal || p.digits, 1, 4) || '-' || substr(p.postal || p.digits, 5)
         ELSE p.postal || p.digits
       END,
       p.country_code,
       CASE WHEN p.e % 5 = 0 THEN NULL ELSE date('1950-01-01', '+' || (p.e % 18000) || ' days') END,
       date('2019-03-01', '+' || (p.n * 2000 / 600 + p.f % 3) || ' days'),
       CASE WHEN p.a % 4 = 0 THEN 43 + p.a / 4 % 2 END,
       CASE WHEN p.b % 17 = 0 THEN 0 ELSE 1 END,
       CASE p.c % 41
         WHEN 0 THEN 'Prefers pick-up in store.'
         WHEN 1 THEN 'Invite to the spring gear swap – a regular since the first one.'
         WHEN 2 THEN 'Bitte nur per E-Mail kontaktieren.'
         WHEN 3 THEN 'Asked about group discounts for a club trip.'
       END
FROM placed p
JOIN first_names f ON f.i = p.p % 40 + 1
JOIN last_names l ON l.i = p.p / 40 + 1
JOIN streets st ON st.country_code = p.country_code AND st.k = p.c % 3
ORDER BY p.n;

-- Products come in blocks of about 17 per kind; within a block every
-- product belongs to a different series.
WITH RECURSIVE seq(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM seq WHERE n < 250)
INSERT INTO products (product_id, sku, name, category_id, supplier_id, unit_price, units_in_stock,
                      reorder_level, weight_kg, description)
SELECT seq.n,
       printf('LK-%02d-%04d', k.category_id, seq.n),
       s.name || ' ' || k.noun || ' ' || v.variant,
       k.category_id,
       CASE WHEN r.e % 30 = 0 THEN NULL
            ELSE json_extract(k.suppliers, '$[' || (r.e % json_array_length(k.suppliers)) || ']') END,
       round(k.base_price * (0.75 + (r.b % 1000) / 1000.0 * 0.5 + k.step * v.idx)) - 0.05,
       CASE WHEN r.d % 11 = 0 THEN 0 ELSE r.d % 140 END,
       CASE WHEN k.base_price > 100 THEN 3 ELSE 10 END,
       CASE WHEN r.c % 12 = 0 THEN NULL ELSE round(k.base_weight * (0.8 + (r.c % 400) / 1000.0), 3) END,
       CASE WHEN r.f % 25 = 0 THEN NULL
            ELSE s.name || ' ' || k.noun || ' ' || v.variant || ' – ' || p1.text || ' ' || k.material || ' ' || p2.text END
FROM seq
JOIN rnd r ON r.n = 2000 + seq.n
JOIN kinds k ON k.k = (seq.n - 1) * 15 / 250 + 1
JOIN series s ON s.i = seq.n * 7 % 24 + 1
JOIN (SELECT k, json_each.key AS idx, json_each.value AS variant FROM kinds, json_each(kinds.variants)) v
  ON v.k = k.k AND v.idx = r.a % json_array_length(k.variants)
JOIN phrases p1 ON p1.kind = 1 AND p1.k = r.f % 8
JOIN phrases p2 ON p2.kind = 2 AND p2.k = r.f / 8 % 8
ORDER BY seq.n;

INSERT INTO tags (tag_id, name, colour) VALUES
  (1, 'ultralight', '#4CAF50'), (2, 'waterproof', '#1E88E5'), (3, 'recycled', '#8BC34A'),
  (4, 'bestseller', '#FFB300'), (5, 'new', '#E53935'), (6, 'sale', '#D81B60'),
  (7, 'vegan', '#43A047'), (8, 'winter', '#90CAF9'), (9, 'kids', '#FF7043'), (10, 'fair trade', NULL);

-- Each tag goes to about a quarter of the products, two bits of the hash per tag.
INSERT INTO product_tags (product_id, tag_id)
SELECT p.product_id, t.tag_id
FROM products p JOIN rnd r ON r.n = 2300 + p.product_id CROSS JOIN tags t
WHERE (r.a >> (2 * t.tag_id)) & 3 = 0
ORDER BY 1, 2;

-- Products whose price rose on 2024-01-15 and what they cost before; the
-- order lines and the audit log below both use it.
CREATE TEMP TABLE price_changes (product_id INTEGER PRIMARY KEY, old_price REAL, new_price REAL);
INSERT INTO price_changes
SELECT product_id, round(unit_price / 1.06) - 0.05, unit_price FROM products WHERE product_id % 4 = 0;

-- Orders from 2022 to 2024, more of them each year. Ids follow the order
-- date. About 45 % are sold in a store by one of its two associates; the
-- rest come through the online shop. Customers only order after signing up.
WITH RECURSIVE
  seq(k) AS (SELECT 1 UNION ALL SELECT k + 1 FROM seq WHERE k < 1500),
  dated AS (
    SELECT seq.k, r.a, r.b, r.c, r.d, r.e, r.f,
           -- u = a / 2^32 is uniform in [0, 1); 1095 * u * (1.4 - 0.4 * u)
           -- bends it so that later days get more orders
           date('2022-01-01', '+' || CAST(1095 * (r.a / 4294967296.0) * (1.4 - 0.4 * (r.a / 4294967296.0))
                                          AS INTEGER) || ' days') AS order_date
    FROM seq JOIN rnd r ON r.n = 3000 + seq.k
  ),
  placed AS (
    SELECT d.*,
           CASE WHEN d.b % 100 < 45 THEN 1 + d.c % 12 END AS store_id,
           1 + d.e % (SELECT max(customer_id) FROM customers WHERE created_at <= d.order_date) AS customer_id,
           julianday('2024-12-31') - julianday(d.order_date) AS age
    FROM dated d
  )
INSERT INTO orders (customer_id, employee_id, store_id, order_date, required_date, shipped_date,
                    status, payment_method, ship_city, ship_country, freight, comment)
SELECT p.customer_id,
       CASE WHEN p.store_id IS NOT NULL THEN 16 + p.store_id + 12 * (p.d % 2) END,
       p.store_id,
       p.order_date,
       CASE WHEN p.store_id IS NULL THEN date(p.order_date, '+14 days') END,
       CASE
         WHEN p.store_id IS NOT NULL THEN p.order_date
         WHEN p.age < 3 OR p.f % 25 = 0 THEN NULL
         ELSE date(p.order_date, '+' || (1 + p.f % 3) || ' days')
       END,
       CASE
         WHEN p.store_id IS NOT NULL THEN CASE WHEN p.f % 50 = 1 THEN 'returned' ELSE 'delivered' END
         WHEN p.age < 3 THEN CASE WHEN p.f % 2 = 0 THEN 'new' ELSE 'paid' END
         WHEN p.f % 25 = 0 THEN 'cancelled'
         WHEN p.age < 10 THEN 'shipped'
         WHEN p.f % 25 = 1 THEN 'returned'
         ELSE 'delivered'
       END,
       CASE
         WHEN p.age < 3 AND p.store_id IS NULL AND p.f % 2 = 0 THEN NULL
         WHEN p.store_id IS NOT NULL THEN CASE WHEN p.a % 3 = 0 THEN 'cash' ELSE 'card' END
         ELSE CASE p.a % 7 WHEN 0 THEN 'invoice' WHEN 1 THEN 'bank transfer' WHEN 2 THEN 'voucher' ELSE 'card' END
       END,
       CASE WHEN p.store_id IS NULL THEN c.city END,
       CASE WHEN p.store_id IS NULL THEN c.country_code END,
       CASE WHEN p.store_id IS NOT NULL THEN 0.0
            WHEN c.country_code IN ('DE', 'AT', 'CH', 'FR', 'BE', 'NL', 'CZ', 'PL', 'DK') THEN 4.9
            WHEN c.country_code IN ('CA', 'US', 'NZ') THEN 24.5
            ELSE 9.9 END,
       CASE WHEN p.store_id IS NULL THEN
         CASE p.c % 37
           WHEN 0 THEN 'Gift wrap, please.'
           WHEN 1 THEN 'Leave the parcel at the back door.'
           WHEN 2 THEN 'Bitte beim Nachbarn abgeben.'
           WHEN 3 THEN 'Livraison après 18 h, merci.'
           WHEN 4 THEN 'Needed before our trip on the 20th!'
         END
       END
FROM placed p JOIN customers c ON c.customer_id = p.customer_id
ORDER BY p.order_date, p.k;

-- One to four lines per order, now and then six; a product appears at most
-- once per order. Lines before the price rise use the old price.
WITH RECURSIVE
  slot(s) AS (SELECT 1 UNION ALL SELECT s + 1 FROM slot WHERE s < 6),
  picks AS (
    SELECT o.order_id, slot.s, 1 + rl.a % 250 AS product_id
    FROM orders o
    JOIN rnd ro ON ro.n = 5000 + o.order_id
    JOIN slot ON slot.s <= CASE WHEN ro.b % 15 = 0 THEN 6 ELSE 1 + ro.a % 4 END
    JOIN rnd rl ON rl.n = 10000 + o.order_id * 6 + slot.s
  ),
  unique_picks AS (SELECT order_id, product_id, min(s) AS s FROM picks GROUP BY order_id, product_id)
INSERT INTO order_items (order_id, line_no, product_id, quantity, unit_price, discount)
SELECT u.order_id,
       row_number() OVER (PARTITION BY u.order_id ORDER BY u.s),
       u.product_id,
       CASE WHEN rl.b % 10 < 7 THEN 1 WHEN rl.b % 10 < 9 THEN 2 ELSE 3 + rl.b % 3 END,
       CASE WHEN pc.product_id IS NOT NULL AND o.order_date < '2024-01-15' THEN pc.old_price ELSE pr.unit_price END,
       CASE rl.c % 20 WHEN 0 THEN 0.1 WHEN 1 THEN 0.05 WHEN 2 THEN 0.15 ELSE 0.0 END
FROM unique_picks u
JOIN orders o ON o.order_id = u.order_id
JOIN products pr ON pr.product_id = u.product_id
JOIN rnd rl ON rl.n = 10000 + u.order_id * 6 + u.s
LEFT JOIN price_changes pc ON pc.product_id = u.product_id
ORDER BY u.order_id, u.s;

-- Online orders of 150 or more ship free.
UPDATE orders SET freight = 0.0
WHERE freight > 0 AND (SELECT sum(round(quantity * unit_price * (1 - discount), 2)) FROM order_items i WHERE i.order_id = orders.order_id) >= 150;

-- A point for every ten spent.
UPDATE customers SET loyalty_points = (
  SELECT coalesce(CAST(sum(round(i.quantity * i.unit_price * (1 - i.discount), 2)) / 10 AS INTEGER), 0)
  FROM orders o JOIN order_items i ON i.order_id = o.order_id
  WHERE o.customer_id = customers.customer_id AND o.status IN ('delivered', 'shipped'));

-- The twelve products sold least recently (or never) are discontinued; half
-- of them are sold out.
UPDATE products SET discontinued = 1,
                    units_in_stock = CASE WHEN product_id % 2 = 0 THEN 0 ELSE units_in_stock END
WHERE product_id IN (
  SELECT p.product_id FROM products p
  LEFT JOIN order_items i ON i.product_id = p.product_id
  LEFT JOIN orders o ON o.order_id = i.order_id
  GROUP BY p.product_id ORDER BY max(o.order_date), p.product_id LIMIT 12);

-- History the triggers would have written: the price rise, the status
-- changes of December's online orders and the removal of inactive customers
-- who never ordered.
INSERT INTO audit_log (logged_at, table_name, row_key, action, changes)
SELECT logged_at, table_name, row_key, action, changes FROM (
  SELECT '2024-01-15 07:' || printf('%02d:%02d', product_id / 60 % 60, product_id % 60) AS logged_at,
         'products' AS table_name, product_id AS row_key, 'UPDATE' AS action,
         json_object('unit_price', json_array(old_price, new_price)) AS changes
  FROM price_changes
  UNION ALL
  SELECT order_date || ' ' || printf('%02d:%02d:00', 8 + order_id % 12, order_id % 60),
         'orders', order_id, 'UPDATE', json_object('status', json_array('new', 'paid'))
  FROM orders
  WHERE store_id IS NULL AND order_date >= '2024-12-01' AND status IN ('paid', 'shipped', 'delivered', 'returned')
  UNION ALL
  SELECT shipped_date || ' ' || printf('%02d:%02d:00', 14 + order_id % 4, order_id % 60),
         'orders', order_id, 'UPDATE', json_object('status', json_array('paid', 'shipped'))
  FROM orders WHERE store_id IS NULL AND order_date >= '2024-12-01' AND shipped_date IS NOT NULL
  UNION ALL
  SELECT date(shipped_date, '+2 days') || ' ' || printf('%02d:%02d:00', 10 + order_id % 6, order_id % 60),
         'orders', order_id, 'UPDATE', json_object('status', json_array('shipped', 'delivered'))
  FROM orders WHERE store_id IS NULL AND order_date >= '2024-12-01' AND status = 'delivered'
  UNION ALL
  SELECT '2024-11-29 18:' || printf('%02d:00', customer_id % 60),
         'customers', customer_id, 'DELETE',
         json_object('first_name', first_name, 'last_name', last_name, 'email', email, 'city', city)
  FROM customers c
  WHERE is_active = 0 AND NOT EXISTS (SELECT 1 FROM orders o WHERE o.customer_id = c.customer_id)
)
ORDER BY logged_at, table_name, row_key;

DELETE FROM customers
WHERE is_active = 0 AND NOT EXISTS (SELECT 1 FROM orders o WHERE o.customer_id = customers.customer_id);

-- Files that are not images: an export, a settings document, raw bytes, an
-- empty file and one whose upload never happened.
INSERT INTO media (media_id, file_name, mime_type, data, added_on, caption) VALUES
  (6, 'price_list_tents.csv', 'text/csv',
   CAST('sku;name;unit_price' || char(10) ||
        (SELECT group_concat(line, char(10)) FROM (
           SELECT sku || ';' || name || ';' || printf('%.2f', unit_price) AS line
           FROM products WHERE category_id = 8 ORDER BY product_id)) || char(10) AS BLOB),
   '2024-01-15', 'Tent prices after the January price rise'),
  (7, 'opening_hours.json', 'application/json',
   CAST(json_object('monday-friday', '09:30–19:00', 'saturday', '09:00–16:00', 'sunday', NULL,
                    'stores', (SELECT json_group_array(name) FROM (SELECT name FROM stores ORDER BY store_id)))
        AS BLOB),
   '2023-03-01', NULL),
  (8, 'byte_ramp.bin', 'application/octet-stream',
   X'000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F202122232425262728292A2B2C2D2E2F303132333435363738393A3B3C3D3E3F404142434445464748494A4B4C4D4E4F505152535455565758595A5B5C5D5E5F606162636465666768696A6B6C6D6E6F707172737475767778797A7B7C7D7E7F808182838485868788898A8B8C8D8E8F909192939495969798999A9B9C9D9E9FA0A1A2A3A4A5A6A7A8A9AAABACADAEAFB0B1B2B3B4B5B6B7B8B9BABBBCBDBEBFC0C1C2C3C4C5C6C7C8C9CACBCCCDCECFD0D1D2D3D4D5D6D7D8D9DADBDCDDDEDFE0E1E2E3E4E5E6E7E8E9EAEBECEDEEEFF0F1F2F3F4F5F6F7F8F9FAFBFCFDFEFF',
   '2022-06-30', 'Every byte value once, for testing hex views'),
  (9, 'welcome.txt', 'text/plain; charset=utf-8',
   CAST('Welcome! Willkommen! Bienvenue! Witamy! Velkommen! Velkomin! Tervetuloa!' || char(10) AS BLOB),
   '2021-05-01', 'Door sign text'),
  (10, 'padding.bin', 'application/octet-stream', zeroblob(1024), '2022-06-30', 'One KiB of zeros'),
  (11, 'empty.dat', 'application/octet-stream', X'', '2022-06-30', 'A file of zero bytes'),
  (12, 'delivery_note_scan.pdf', 'application/pdf', NULL, '2024-12-30', 'Scan still to be uploaded');

INSERT INTO product_search (docid, name, description)
SELECT product_id, name, description FROM products ORDER BY product_id;

-- Per store: the building, its car park and its delivery zone (ids
-- store_id * 10 + 1..3); ids 1-3 are the sales regions.
INSERT INTO store_areas (area_id, min_lon, max_lon, min_lat, max_lat, store_id, kind, label) VALUES
  (1, 4.5, 17.5, 44.5, 53.5, NULL, 'region', 'Sales region Central'),
  (2, 12.0, 24.5, 48.5, 55.0, NULL, 'region', 'Sales region East'),
  (3, -25.0, 32.0, 54.0, 71.5, NULL, 'region', 'Sales region North');
INSERT INTO store_areas (area_id, min_lon, max_lon, min_lat, max_lat, store_id, kind, label)
SELECT store_id * 10 + 1, longitude - 0.0006, longitude + 0.0006, latitude - 0.0004, latitude + 0.0004,
       store_id, 'building', name || ' – building'
FROM stores
UNION ALL
SELECT store_id * 10 + 2, longitude + 0.0008, longitude + 0.0020, latitude - 0.0005, latitude + 0.0003,
       store_id, 'parking', name || ' – car park'
FROM stores WHERE store_id NOT IN (1, 3, 7)   -- no car park in the city centres
UNION ALL
SELECT store_id * 10 + 3, longitude - 0.3, longitude + 0.3, latitude - 0.2, latitude + 0.2,
       store_id, 'delivery', name || ' – same-day delivery zone'
FROM stores
ORDER BY 1;

-- ===========================================================================
-- Indexes
-- ===========================================================================

CREATE UNIQUE INDEX customers_email_uq ON customers (email);   -- several NULLs are fine
CREATE UNIQUE INDEX employees_email_uq ON employees (email);
CREATE UNIQUE INDEX products_sku_uq ON products (sku);

-- Partial: only the few rows the daily work looks at.
CREATE INDEX orders_open_idx ON orders (order_date) WHERE status IN ('new', 'paid');
CREATE INDEX products_reorder_idx ON products (supplier_id)
  WHERE discontinued = 0 AND units_in_stock <= reorder_level;

-- Expressions: case-blind name search and monthly reports.
CREATE INDEX customers_name_idx ON customers (lower(last_name), lower(first_name));
CREATE INDEX orders_month_idx ON orders (substr(order_date, 1, 7));

-- Child keys, so that checks and cascades need no table scans.
CREATE INDEX categories_parent_idx ON categories (parent_id);
CREATE INDEX categories_icon_idx ON categories (icon_id);
CREATE INDEX suppliers_country_idx ON suppliers (country_code);
CREATE INDEX stores_country_idx ON stores (country_code);
CREATE INDEX stores_manager_idx ON stores (manager_id);
CREATE INDEX employees_manager_idx ON employees (manager_id);
CREATE INDEX employees_store_idx ON employees (store_id);
CREATE INDEX customers_country_idx ON customers (country_code);
CREATE INDEX customers_rep_idx ON customers (support_rep_id);
CREATE INDEX products_category_idx ON products (category_id);
CREATE INDEX products_supplier_idx ON products (supplier_id);
CREATE INDEX product_tags_tag_idx ON product_tags (tag_id);
CREATE INDEX orders_customer_idx ON orders (customer_id, order_date);
CREATE INDEX orders_employee_idx ON orders (employee_id);
CREATE INDEX orders_store_idx ON orders (store_id);
CREATE INDEX orders_ship_country_idx ON orders (ship_country);
CREATE INDEX order_items_product_idx ON order_items (product_id);
CREATE INDEX audit_log_row_idx ON audit_log (table_name, row_key);

-- ===========================================================================
-- Views
-- ===========================================================================

-- One row per order line with everything an invoice shows.
CREATE VIEW order_details AS
SELECT o.order_id, o.order_date, o.status,
       c.customer_id, c.first_name || ' ' || c.last_name AS customer,
       coalesce(s.name, 'Online shop') AS sold_by,
       i.line_no, p.sku, p.name AS product, cat.name AS category,
       i.quantity, i.unit_price, i.discount,
       round(i.quantity * i.unit_price * (1 - i.discount), 2) AS line_total
FROM orders o
JOIN customers c ON c.customer_id = o.customer_id
JOIN order_items i ON i.order_id = o.order_id
JOIN products p ON p.product_id = i.product_id
JOIN categories cat ON cat.category_id = p.category_id
LEFT JOIN stores s ON s.store_id = o.store_id;

CREATE VIEW order_totals AS
SELECT o.order_id, o.order_date, o.status, o.customer_id, o.store_id,
       count(i.line_no) AS lines,
       coalesce(sum(i.quantity), 0) AS units,
       round(coalesce(sum(round(i.quantity * i.unit_price * (1 - i.discount), 2)), 0), 2) AS subtotal,
       o.freight,
       round(coalesce(sum(round(i.quantity * i.unit_price * (1 - i.discount), 2)), 0) + o.freight, 2) AS total
FROM orders o
LEFT JOIN order_items i ON i.order_id = o.order_id
GROUP BY o.order_id;

-- Customers without orders show up with zeros.
CREATE VIEW customer_summary AS
SELECT c.customer_id, c.first_name, c.last_name, c.city, c.country_code,
       count(t.order_id) AS orders,
       round(coalesce(sum(t.total), 0), 2) AS total_spent,
       min(t.order_date) AS first_order,
       max(t.order_date) AS last_order
FROM customers c
LEFT JOIN order_totals t ON t.customer_id = c.customer_id AND t.status NOT IN ('cancelled', 'returned')
GROUP BY c.customer_id;

-- Revenue per top-level category and year.
CREATE VIEW sales_by_category AS
SELECT coalesce(top.name, cat.name) AS category,
       substr(o.order_date, 1, 4) AS year,
       count(DISTINCT o.order_id) AS orders,
       sum(i.quantity) AS units,
       round(sum(round(i.quantity * i.unit_price * (1 - i.discount), 2)), 2) AS revenue
FROM order_items i
JOIN orders o ON o.order_id = i.order_id
JOIN products p ON p.product_id = i.product_id
JOIN categories cat ON cat.category_id = p.category_id
LEFT JOIN categories top ON top.category_id = cat.parent_id
WHERE o.status NOT IN ('cancelled', 'returned')
GROUP BY 1, 2;

CREATE VIEW monthly_sales AS
SELECT substr(order_date, 1, 7) AS month,
       count(*) AS orders,
       sum(store_id IS NULL) AS online_orders,
       round(sum(total), 2) AS revenue,
       round(avg(total), 2) AS average_order
FROM order_totals
WHERE status NOT IN ('cancelled', 'returned')
GROUP BY 1;

-- Matches the WHERE of products_reorder_idx, so it reads that index.
CREATE VIEW low_stock AS
SELECT p.product_id, p.sku, p.name, p.units_in_stock, p.reorder_level,
       s.name AS supplier, s.email AS supplier_email
FROM products p
LEFT JOIN suppliers s ON s.supplier_id = p.supplier_id
WHERE p.discontinued = 0 AND p.units_in_stock <= p.reorder_level;

-- Who reports to whom, walked down from the top.
CREATE VIEW employee_hierarchy AS
WITH RECURSIVE chain (employee_id, depth, path) AS (
  SELECT employee_id, 0, first_name || ' ' || last_name
  FROM employees WHERE manager_id IS NULL
  UNION ALL
  SELECT e.employee_id, c.depth + 1, c.path || ' › ' || e.first_name || ' ' || e.last_name
  FROM employees e JOIN chain c ON e.manager_id = c.employee_id
)
SELECT e.employee_id, e.first_name || ' ' || e.last_name AS name, e.title,
       c.depth, c.path, s.name AS store
FROM chain c
JOIN employees e ON e.employee_id = c.employee_id
LEFT JOIN stores s ON s.store_id = e.store_id;

-- The catalogue as the shop shows it. Editable through the INSTEAD OF
-- triggers below; the category is given by name, tags are read-only.
CREATE VIEW product_catalog AS
SELECT p.product_id, p.sku, p.name, c.name AS category, p.unit_price, p.units_in_stock,
       p.discontinued,
       (SELECT group_concat(t.name, ', ')
        FROM product_tags pt JOIN tags t ON t.tag_id = pt.tag_id
        WHERE pt.product_id = p.product_id) AS tags
FROM products p
JOIN categories c ON c.category_id = p.category_id;

-- ===========================================================================
-- Triggers, created after the data so that loading fires none of them
-- ===========================================================================

-- Stamp updated_at unless the statement sets it. The inner condition ends the
-- recursion when recursive triggers are on and two edits share a second.
CREATE TRIGGER customers_touch AFTER UPDATE ON customers
WHEN NEW.updated_at IS OLD.updated_at
BEGIN
  UPDATE customers SET updated_at = datetime('now')
  WHERE customer_id = NEW.customer_id AND updated_at IS NOT datetime('now');
END;

CREATE TRIGGER products_touch AFTER UPDATE ON products
WHEN NEW.updated_at IS OLD.updated_at
BEGIN
  UPDATE products SET updated_at = datetime('now')
  WHERE product_id = NEW.product_id AND updated_at IS NOT datetime('now');
END;

CREATE TRIGGER products_price_audit AFTER UPDATE OF unit_price ON products
WHEN NEW.unit_price IS NOT OLD.unit_price
BEGIN
  INSERT INTO audit_log (logged_at, table_name, row_key, action, changes)
  VALUES (datetime('now'), 'products', NEW.product_id, 'UPDATE',
          json_object('unit_price', json_array(OLD.unit_price, NEW.unit_price)));
END;

CREATE TRIGGER orders_status_audit AFTER UPDATE OF status ON orders
WHEN NEW.status IS NOT OLD.status
BEGIN
  INSERT INTO audit_log (logged_at, table_name, row_key, action, changes)
  VALUES (datetime('now'), 'orders', NEW.order_id, 'UPDATE',
          json_object('status', json_array(OLD.status, NEW.status)));
END;

CREATE TRIGGER customers_delete_audit AFTER DELETE ON customers
BEGIN
  INSERT INTO audit_log (logged_at, table_name, row_key, action, changes)
  VALUES (datetime('now'), 'customers', OLD.customer_id, 'DELETE',
          json_object('first_name', OLD.first_name, 'last_name', OLD.last_name,
                      'email', OLD.email, 'city', OLD.city));
END;

-- New order lines: refuse discontinued products and orders beyond the stock,
-- then take the goods out of stock.
CREATE TRIGGER order_items_check BEFORE INSERT ON order_items
BEGIN
  SELECT CASE
           WHEN p.discontinued THEN RAISE(ABORT, 'product is discontinued')
           WHEN p.units_in_stock < NEW.quantity THEN RAISE(ABORT, 'not enough stock')
         END
  FROM products p WHERE p.product_id = NEW.product_id;
END;

CREATE TRIGGER order_items_take_stock AFTER INSERT ON order_items
BEGIN
  UPDATE products SET units_in_stock = units_in_stock - NEW.quantity
  WHERE product_id = NEW.product_id;
END;

-- Keep the full-text index in step with the products.
CREATE TRIGGER products_search_insert AFTER INSERT ON products
BEGIN
  INSERT INTO product_search (docid, name, description) VALUES (NEW.product_id, NEW.name, NEW.description);
END;

CREATE TRIGGER products_search_update AFTER UPDATE OF product_id, name, description ON products
BEGIN
  DELETE FROM product_search WHERE docid = OLD.product_id;
  INSERT INTO product_search (docid, name, description) VALUES (NEW.product_id, NEW.name, NEW.description);
END;

CREATE TRIGGER products_search_delete AFTER DELETE ON products
BEGIN
  DELETE FROM product_search WHERE docid = OLD.product_id;
END;

CREATE TRIGGER product_catalog_insert INSTEAD OF INSERT ON product_catalog
BEGIN
  SELECT RAISE(ABORT, 'unknown category')
  WHERE NOT EXISTS (SELECT 1 FROM categories WHERE name = NEW.category);
  INSERT INTO products (product_id, sku, name, category_id, unit_price, units_in_stock, discontinued)
  VALUES (NEW.product_id, NEW.sku, NEW.name,
          (SELECT category_id FROM categories WHERE name = NEW.category),
          NEW.unit_price, coalesce(NEW.units_in_stock, 0), coalesce(NEW.discontinued, 0));
END;

CREATE TRIGGER product_catalog_update INSTEAD OF UPDATE ON product_catalog
BEGIN
  SELECT RAISE(ABORT, 'unknown category')
  WHERE NOT EXISTS (SELECT 1 FROM categories WHERE name = NEW.category);
  UPDATE products
  SET sku = NEW.sku, name = NEW.name,
      category_id = (SELECT category_id FROM categories WHERE name = NEW.category),
      unit_price = NEW.unit_price, units_in_stock = NEW.units_in_stock,
      discontinued = NEW.discontinued
  WHERE product_id = OLD.product_id;
END;

-- Taking a product out of the catalogue discontinues it; its order history stays.
CREATE TRIGGER product_catalog_delete INSTEAD OF DELETE ON product_catalog
BEGIN
  UPDATE products SET discontinued = 1 WHERE product_id = OLD.product_id;
END;

ANALYZE;

COMMIT;

VACUUM;
